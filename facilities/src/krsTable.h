// krsTable.h - one settings table, without its handle. Belongs to one thread while it is loaded; many may read it.
// Header-only, so that a look-up is compiled into the function that programs call for each value.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "krs.h"
#include "krsFile.h"
#include "krsTexts.h"

namespace krs {

/// A settings table: entries in the order of loading, and their index by key.
class Table {
public:
    const char* find(std::string_view key) const {
        if (slots_.empty()) return nullptr;
        const Slot& slot = slots_[slotOf(key, hashOf(key))];
        return slot.used() ? entries_[slot.entry].value : nullptr;
    }

    // Stores the entries one by one, so that the filter finds in the table what stands above.
    void load(ParsedFile file, KRSFilter filter) {
        texts_.adopt(std::move(file.texts));
        const std::vector<ParsedEntry>& entries = file.entries;
        reserve(entries.size());
        auto ahead = entries.begin() + std::min<std::ptrdiff_t>(kPrefetched, entries.end() - entries.begin());
        for (const ParsedEntry& parsed : entries) {
            if (ahead != entries.end()) prefetch((ahead++)->hash);
            const char* value = parsed.value;
            if (filter != nullptr) {
                const char* const filtered = filter(parsed.key, parsed.value);
                if (filtered == nullptr) continue;
                if (std::strcmp(filtered, value) != 0) value = texts_.store(filtered);
            }
            store({parsed.key, value, parsed.line, true}, parsed.hash);
        }
    }

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

    // Deletes the table, which is made with new, at once or at the end of the loads that run.
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

    // Where `key` is, or the free slot in which it belongs. There is always a free slot.
    std::size_t slotOf(std::string_view key, std::uint32_t hash) const {
        const std::size_t mask = slots_.size() - 1;
        std::size_t at = hash & mask;
        while (slots_[at].used() && !(slots_[at].hash == hash && key == entries_[slots_[at].entry].key))
            at = (at + 1) & mask;
        return at;
    }

    // A large table's slots are far apart: they are asked for some entries ahead, so that nobody waits for them.
    static constexpr std::ptrdiff_t kPrefetched = 8;
    void prefetch(std::uint32_t hash) const { __builtin_prefetch(&slots_[hash & (slots_.size() - 1)], 1); }

    void store(const KRSEntry& entry, std::uint32_t hash) {
        if ((entries_.size() + 1) * 2 > slots_.size()) rehash((entries_.size() + 1) * 2);
        Slot& slot = slots_[slotOf(entry.key, hash)];
        entries_.push_back(entry);
        if (slot.used()) entries_[slot.entry].inForce = false;
        slot = {hash, static_cast<std::uint32_t>(entries_.size() - 1)};
    }

    // At least doubles, so that many small files loaded into one table stay linear.
    void reserve(std::size_t more) {
        const std::size_t needed = entries_.size() + more;
        if (needed > entries_.capacity()) entries_.reserve(std::max(needed, entries_.capacity() * 2));
        rehash(needed * 2);
    }

    // Makes at least `wanted` slots: twice as many as entries keeps the runs of used slots short.
    void rehash(std::size_t wanted) {
        std::size_t size = std::max<std::size_t>(slots_.size(), 16);
        while (size < wanted) size *= 2;
        if (size == slots_.size()) return;
        std::vector<Slot> old(size);
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.used()) slots_[slotOf(entries_[slot.entry].key, slot.hash)] = slot;
        }
    }

    Arena texts_;
    std::vector<KRSEntry> entries_;
    std::vector<Slot> slots_;  // as many as a power of two
    int loads_ = 0;
    bool released_ = false;
};

}  // namespace krs
