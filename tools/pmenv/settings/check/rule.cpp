#include "check/rule.h"

#include <algorithm>
#include <utility>

#include "settings.h"

// What lies behind the beginning of a very long line is not shown.
void Report::at(int line, std::size_t column, std::size_t length, std::string text) {
    const auto& lines = settings_.lines();
    const std::size_t end = lines.empty() ? 1 : lines[static_cast<std::size_t>(line) - 1].text.size() + 1;
    const std::size_t begin = std::min(column, end);
    findings_.push_back({&rule_, line, begin, std::min(length, end - begin + 1), std::move(text)});
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
        atValue(entry, text + " (in the value of the environment variable " + reference.variable + ")");
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
    return KnownValue{*key, *expansion.text};
}
