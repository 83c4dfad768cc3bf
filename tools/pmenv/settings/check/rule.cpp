#include "check/rule.h"

#include <algorithm>
#include <utility>

#include "settings.h"

namespace {

// Instead of a text that would quote what is hidden. The rule's name still tells what is wrong.
constexpr char kInHiddenValue[] = "this is in a value that is hidden; --show-secrets tells more";

// Whether the text quotes a part of a line.
bool quotes(const std::string& text) { return text.find('\'') != std::string::npos; }

}  // namespace

// What lies behind the beginning of a very long line is not shown. Of a hidden part it is not shown where in it.
void Report::at(int line, std::size_t column, std::size_t length, std::string text) {
    const auto& lines = settings_.lines();
    if (lines.empty()) return add(line, 1, 1, std::move(text));
    const SettingsLine& meant = lines[static_cast<std::size_t>(line) - 1];
    const std::size_t begin = std::min(column - 1, meant.text.size());
    const std::size_t end = std::min(begin + length, meant.text.size() + 1);
    if (!meant.hidden.overlap(begin, end - begin)) return add(line, begin + 1, end - begin, std::move(text));
    const std::size_t first = meant.hidden.around(begin).first;
    const std::size_t last = std::max(end, meant.hidden.around(end - 1).second);
    add(line, first + 1, last - first, quotes(text) ? kInHiddenValue : std::move(text));
}

void Report::add(int line, std::size_t column, std::size_t length, std::string text) {
    findings_.push_back({&rule_, line, column, length, std::move(text)});
}

void Report::atKey(const Entry& entry, std::string text) {
    at(entry.line, entry.keyColumn, entry.keyLength, std::move(text));
}

void Report::atValue(const Entry& entry, std::string text) { inValue(entry, 0, entry.value.size(), std::move(text)); }

void Report::inValue(const Entry& entry, std::size_t position, std::size_t length, std::string text) {
    at(entry.line, entry.valueColumn + position, length, std::move(text));
}

void Report::atReference(const Entry& entry, const Reference& reference, const std::string& text) {
    if (reference.position) {
        inValue(entry, *reference.position, reference.written.size(), text);
    } else if (!reference.variable.empty()) {
        atValue(entry, (reference.isHidden ? kInHiddenValue : text) + " (in the value of the environment variable " +
                           reference.variable + ")");
    } else if (reference.isHidden) {
        atValue(entry, kInHiddenValue);
    } else {
        atValue(entry, text + " (the reference " + quoted(reference.written) + " forms while it is expanded)");
    }
}

std::string quoted(const std::string& text) {
    constexpr std::size_t kLongest = 80;
    return "'" + (text.size() <= kLongest ? text : text.substr(0, kLongest) + "...") + "'";
}

std::string onLine(int line) { return "line " + std::to_string(line); }

std::optional<KnownValue> knownValue(const Expansion& expansion, const SettingsText& settings) {
    if (expansion.when != Expansion::When::Reading || !expansion.text) return std::nullopt;
    if (expansion.text->size() > kLongestExpansion) return std::nullopt;
    const KnownKey* const key = settings.knownKeys()->find(expansion.entry->key);
    if (key == nullptr) return std::nullopt;
    return KnownValue{*key, *expansion.text, expansion.hidden};
}
