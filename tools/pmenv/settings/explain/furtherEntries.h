// furtherEntries.h - the entries of a further settings file, which is stored as it stands.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "explain/observedSettings.h"

class FurtherEntries {
public:
    /// Throws Failure with the reason, line and column when the file is rejected.
    explicit FurtherEntries(std::string file, Secrets secrets = {});

    const std::string& file() const { return file_; }
    /// In file order.
    const std::vector<ObservedEntry>& entries() const { return entries_; }
    const std::string& valueOf(std::size_t entry) const { return values_[entry]; }
    /// What of it must not be shown.
    HiddenParts hiddenOf(std::size_t entry) const { return secrets_.partsOf(entries_[entry].key, values_[entry]); }
    /// The last entry of `key`, the one that counts.
    std::optional<std::size_t> inForce(const std::string& key) const;
    std::vector<std::string> names() const;

private:
    void add(const struct KRSLine& line);

    std::string file_;
    Secrets secrets_;
    std::vector<ObservedEntry> entries_;
    std::vector<std::string> values_;  // whole, which excerpts need not be
};
