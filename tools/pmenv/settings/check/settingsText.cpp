#include "check/settingsText.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "failure.h"
#include "krs.h"
#include "nearest.h"

namespace {

constexpr char kBlanks[] = " \t";

std::size_t writtenKeyLength(std::string_view line, std::size_t column) {
    return line.find_last_not_of(kBlanks, line.find('=') - 1) + 2 - column;
}

std::vector<std::string> variableNames() {
    std::vector<std::string> names;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        names.emplace_back(text.substr(0, text.find('=')));
    }
    return names;
}

// The library names the file by its path, which may be one that the user has never seen.
std::string reasonOf(const std::string& path, const std::string& error) {
    return error.compare(0, path.size(), path) == 0 ? error.substr(path.size()) : ": " + error;
}

// Whether the library would take the beginning of a very long line for an entry, as it does with the whole.
bool isLoadable(const SettingsLine& line) {
    if (!line.refusal.empty() || line.isWhole()) return line.refusal.empty();
    return line.text[line.text.find_first_not_of(kBlanks)] != '[' && line.text.find('=') != std::string::npos;
}

std::string valueOf(const SettingsLine& line, const KRSLine& read) {
    if (line.isWhole()) return read.value;
    return line.text.substr(std::min(read.valueColumn - 1, line.text.size()));
}

// A comment may hold a setting that was taken out, and a refused line one that was miswritten.
HiddenParts hiddenIn(const SettingsLine& line, const KRSLine& read, const Secrets& secrets) {
    if (read.key == nullptr) return line.section() ? HiddenParts() : secrets.partsOfLine(line.text);
    const std::size_t begin = std::min(read.valueColumn - 1, line.text.size());
    HiddenParts hidden;
    hidden.replace(begin, 0, secrets.partsOf(read.key, std::string_view(line.text).substr(begin)), 0);
    return hidden;
}

}  // namespace

std::optional<SectionName> SettingsLine::section() const {
    if (!refusal.empty() || !isWhole()) return std::nullopt;
    return sectionIn(text);
}

SettingsText::SettingsText(const std::string& path, std::string name, FileKind kind, Secrets secrets)
    : name_(std::move(name)), kind_(kind), secrets_(std::move(secrets)) {
    const int read = KRSReadLines(path.c_str(), [this](const KRSLine& line) {
        lines_.push_back({line.number, std::string(line.text.substr(0, SettingsLine::kLongest)), line.text.size(),
                          line.error != nullptr ? line.error : "", line.errorColumn});
        lines_.back().hidden = hiddenIn(lines_.back(), line, secrets_);
        if (line.key == nullptr || !isLoadable(lines_.back())) return;
        addEntry({line.key, valueOf(lines_.back(), line), line.number, line.keyColumn,
                  writtenKeyLength(line.text, line.keyColumn), line.valueColumn, 0, std::nullopt});
    });
    if (read == 0) throw Failure("cannot check the settings: " + name_ + reasonOf(path, KRSLoadError()));
}

void SettingsText::addEntry(Entry entry) {
    const auto [known, isNew] = lastOfKey_.try_emplace(entry.key, entries_.size());
    entry.first = isNew ? entries_.size() : entries_[known->second].first;
    if (!isNew) entry.previous = std::exchange(known->second, entries_.size());
    entries_.push_back(std::move(entry));
}

const Entry* SettingsText::find(const std::string& key) const {
    const auto known = lastOfKey_.find(key);
    return known != lastOfKey_.end() ? &entries_[known->second] : nullptr;
}

std::string SettingsText::loadable() const {
    std::string text;
    for (const SettingsLine& line : lines_) text.append(isLoadable(line) ? line.text : "").append("\n");
    return text;
}

std::string SettingsText::nearestSettings(const std::string& name) const {
    if (referable_.empty() && !isFurther()) {
        for (const auto& [key, entry] : lastOfKey_) referable_.push_back(key);
    }
    return nearest(name, referable_);
}

std::string SettingsText::nearestVariables(const std::string& name) const {
    if (variables_.empty()) variables_ = variableNames();
    return nearest(name, variables_);
}

std::string SettingsText::nearestKnownKeys(const std::string& name) const { return nearest(name, knownKeys_->names()); }

// Comparing names takes long in a large file, so only the first unknown names get suggestions there.
std::string SettingsText::nearest(const std::string& name, const std::vector<std::string>& known) const {
    if (comparisonsLeft_ < known.size()) return {};
    comparisonsLeft_ -= known.size();
    return didYouMean(nearestNames(name, known));
}
