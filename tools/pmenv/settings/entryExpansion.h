// entryExpansion.h - what the library meets while it expands the value of one entry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "krresolve.h"

/// A reference that stands for nothing.
struct EmptyReference {
    std::string written;
    std::string name;
    bool isVariable;
    std::string variable;  ///< the process variable whose value holds it; "" for one of the entry's own value
};

/// A text on the way from an entry to where its expansion failed.
struct ChainLink {
    std::string name;  ///< the beginning of a very long one
    bool isVariable;
    std::size_t valueHash;
};

struct EntryExpansion {
    /// Each once. Those in the values of other settings are the matter of these settings.
    std::vector<EmptyReference> empty;
    std::optional<KRSResolveFailure> failure;
    /// The way to where it failed, beginning with the entry; for a cycle, the name at which it closes stands at the end
    /// once more.
    std::vector<ChainLink> chain;
};

/// How much expanding a file may take. An honest file takes a small part of it.
class WorkLimit {
public:
    struct Exceeded {};

    explicit WorkLimit(std::size_t entries) : left_(kForTheFile + kForAnEntry * entries) {}

    /// Throws Exceeded when it is used up.
    void spend(std::uint64_t characters);

private:
    static constexpr std::uint64_t kForTheFile = std::uint64_t{1} << 30;
    static constexpr std::uint64_t kForAnEntry = 16 * 1024;

    std::uint64_t left_;
};

/// Watches the expansion of one value after the other.
class ExpansionWatch final : public KRSLoadObserver {
public:
    explicit ExpansionWatch(WorkLimit& work) : work_(work) {}

    void found(const KRSReference& reference) override;
    void resolved(const char* value) override;
    void failed(KRSResolveFailure why, const char* text) override;
    void begun(const char* key, const char* value) override;
    void ended(const char* value) override;

    /// Entry by entry, what was seen while a file was loaded.
    const std::vector<EntryExpansion>& loaded() const { return loaded_; }
    /// What was seen of one value that was resolved since.
    EntryExpansion take();

private:
    bool inOwnText() const;
    void closeCycle();
    void noteEmpty(const KRSReference& reference);

    WorkLimit& work_;
    std::vector<EntryExpansion> loaded_;
    EntryExpansion expansion_;
    std::vector<ChainLink> levels_;  // the entry, then the references that are being expanded, each in the one before
    std::size_t settingLevels_ = 0;  // how many of these references are settings
    std::set<std::string> noted_;
};
