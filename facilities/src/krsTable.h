// krsTable.h - one settings table, without its handle. Belongs to one thread while it is loaded; many may read it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "krs.h"
#include "krsFile.h"
#include "krsTexts.h"

namespace krs {

/// A settings table: entries in the order of loading, and their index by key.
class Table {
public:
    /// The value of `key`, null when there is none.
    const char* find(std::string_view key) const;

    /// Stores the entries one by one, so that the filter finds in the table what stands above. Throws LoadFailure.
    void load(Parser parser, KRSFilter filter);

    const std::vector<KRSEntry>& entries() const { return entries_; }

    // A filter may destroy the table that it is called for; the load that runs then releases it at its end.
    class LoadScope {
    public:
        explicit LoadScope(Table* table) : table_(table) { ++table_->loads_; }
        ~LoadScope() {
            if (--table_->loads_ == 0 && table_->released_) delete table_;
        }
        LoadScope(const LoadScope&) = delete;
        LoadScope& operator=(const LoadScope&) = delete;

    private:
        Table* table_;
    };

    /// Deletes the table, which is made with new, at once or at the end of the loads that run.
    void release() {
        released_ = true;
        if (loads_ == 0) delete this;
    }

private:
    static constexpr std::uint32_t kUnused = UINT32_MAX;

    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t entry = kUnused;
        bool used() const { return entry != kUnused; }
    };

    std::size_t slotOf(std::string_view key, std::uint32_t hash) const;
    void prefetch(std::uint32_t hash) const;
    void store(const KRSEntry& entry, std::uint32_t hash);
    void reserve(std::size_t more);
    void rehash(std::size_t wanted);

    Arena texts_;
    std::vector<KRSEntry> entries_;
    std::vector<Slot> slots_;  // as many as a power of two
    int loads_ = 0;
    bool released_ = false;
};

}  // namespace krs
