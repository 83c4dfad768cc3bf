// settingsText.h - a settings file as it stands: its lines, its entries, and what its names could be meant for.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "knownKeys/knownKeys.h"
#include "secrets.h"
#include "sectionName.h"

/// A line of the file.
struct SettingsLine {
    static constexpr std::size_t kLongest = (std::size_t{1} << 20) + 4096;  // no value that can be expanded is longer

    int number;           ///< from 1
    std::string text;     ///< the beginning of a very long one
    std::size_t length;   ///< of the whole line
    std::string refusal;  ///< why the library refuses the file at this line; "" when it does not
    std::size_t refusalColumn;
    HiddenParts hidden{};  ///< what of it must not be shown

    bool isWhole() const { return text.size() == length; }
    /// Of a [section] line.
    std::optional<SectionName> section() const;
};

/// KEY = value.
struct Entry {
    std::string key;  ///< with its section in front
    std::string value;
    int line;
    std::size_t keyColumn;
    std::size_t keyLength;  ///< as written, without its section
    std::size_t valueColumn;
    std::size_t first;                    ///< the first entry of the same key
    std::optional<std::size_t> previous;  ///< the one before it
    bool leftOut = false;                 ///< by the load, because its references fail
    int usedBy = 0;                       ///< the line of the first #{NAME} that the load has replaced with this value

    /// The key as written.
    std::string ownKey() const { return key.substr(key.size() - keyLength); }
    /// "section.", or "" outside of sections.
    std::string sectionPrefix() const { return key.substr(0, key.size() - keyLength); }
};

/// What kind of settings file: references in a further one mean pressmark.ini, never the file itself.
enum class FileKind { Pressmark, Further };

class SettingsText {
public:
    /// Reads the file `path`, which is called `name` to the user. Throws Failure when it cannot be read.
    SettingsText(const std::string& path, std::string name, FileKind kind, Secrets secrets);

    const std::string& name() const { return name_; }
    const Secrets& secrets() const { return secrets_; }
    bool isFurther() const { return kind_ == FileKind::Further; }
    const std::vector<SettingsLine>& lines() const { return lines_; }
    std::vector<Entry>& entries() { return entries_; }
    const std::vector<Entry>& entries() const { return entries_; }
    /// The last entry of `key`; null when there is none.
    const Entry* find(const std::string& key) const;
    std::vector<SettingsLine> takeLines() { return std::move(lines_); }
    /// The file without the lines that the library refuses.
    std::string loadable() const;

    /// Names of the settings that references in this file mean; its own unless they are set.
    void setReferable(std::vector<std::string> names) { referable_ = std::move(names); }
    /// The settings that the product knows; null when that is not known.
    const KnownKeys* knownKeys() const { return knownKeys_ ? &*knownKeys_ : nullptr; }
    void setKnownKeys(std::optional<KnownKeys> keys) { knownKeys_ = std::move(keys); }
    /// "; did you mean 'A'?" for a setting or an environment variable that does not exist.
    std::string nearestSettings(const std::string& name) const;
    std::string nearestVariables(const std::string& name) const;
    /// The same for a setting that the product does not know.
    std::string nearestKnownKeys(const std::string& name) const;

private:
    void addEntry(Entry entry);
    std::string nearest(const std::string& name, const std::vector<std::string>& known) const;

    std::string name_;
    FileKind kind_;
    Secrets secrets_;
    std::vector<SettingsLine> lines_;
    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::size_t> lastOfKey_;
    mutable std::vector<std::string> referable_;  // filled when they are needed
    mutable std::vector<std::string> variables_;
    std::optional<KnownKeys> knownKeys_;
    mutable std::size_t comparisonsLeft_ = 500'000;
};
