// observedSettings.h - a settings file as it stands, and what the library made of it while it was loaded.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "explain/observation.h"
#include "workLimit.h"

/// An entry of the file.
struct ObservedEntry {
    std::string key;
    int line;
    std::size_t column;             ///< of the value's first character
    Excerpt raw;                    ///< the value as the file has it
    std::optional<Excerpt> stored;  ///< the value as it was stored; none when it was left out
    Observation load;               ///< how it became so
};

class ObservedSettings {
public:
    /// Loads `file` as the library's settings. Throws Failure with the reason, line and column when it is rejected, and
    /// WorkLimit::Exceeded when that takes more than `work`, if given.
    explicit ObservedSettings(std::string file, Secrets secrets = {}, WorkLimit* work = nullptr);
    ObservedSettings(const ObservedSettings&) = delete;
    ObservedSettings& operator=(const ObservedSettings&) = delete;

    const std::string& file() const { return file_; }
    /// The entries in file order.
    const std::vector<ObservedEntry>& entries() const { return entries_; }
    /// The entries of `key`, in file order.
    const std::vector<std::size_t>& entriesOf(const std::string& key) const;
    /// The one of them that counts: the last that was not left out.
    std::optional<std::size_t> inForce(const std::string& key) const;
    /// The names of all settings that have a value.
    std::vector<std::string> names() const;

    /// What is secret in the settings; it lives as long as this object.
    const LoadedSecrets& secrets() const { return secrets_; }

private:
    class LoadRecorder;

    struct EntriesOfKey {
        std::vector<std::size_t> all;
        std::optional<std::size_t> inForce;
    };

    Excerpt written(const std::string& key, std::string_view value) const;
    void readPlaces();

    std::string file_;
    LoadedSecrets secrets_;
    std::vector<ObservedEntry> entries_;
    std::map<std::string, EntriesOfKey> byKey_;  // no hash: a file could provoke collisions
};
