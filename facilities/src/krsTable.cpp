#include "krsTable.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace krs {

namespace {

// A large table's slots are far apart: they are asked for some entries ahead, so that nobody waits for them.
constexpr std::ptrdiff_t kPrefetched = 8;

}  // namespace

const char* Table::find(std::string_view key) const {
    if (slots_.empty()) return nullptr;
    const Slot& slot = slots_[slotOf(key, hashOf(key))];
    return slot.used() ? entries_[slot.entry].value : nullptr;
}

void Table::load(Parser parser, KRSFilter filter) {
    texts_.adopt(parser.takeTexts());
    const std::vector<ParsedEntry>& entries = parser.entries();
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

// Where `key` is, or the free slot in which it belongs. There is always a free slot.
std::size_t Table::slotOf(std::string_view key, std::uint32_t hash) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    while (slots_[at].used() && !(slots_[at].hash == hash && key == entries_[slots_[at].entry].key))
        at = (at + 1) & mask;
    return at;
}

void Table::prefetch(std::uint32_t hash) const { __builtin_prefetch(&slots_[hash & (slots_.size() - 1)], 1); }

void Table::store(const KRSEntry& entry, std::uint32_t hash) {
    if ((entries_.size() + 1) * 2 > slots_.size()) rehash((entries_.size() + 1) * 2);
    Slot& slot = slots_[slotOf(entry.key, hash)];
    entries_.push_back(entry);
    if (slot.used()) entries_[slot.entry].inForce = false;
    slot = {hash, static_cast<std::uint32_t>(entries_.size() - 1)};
}

// At least doubles, so that many small files loaded into one table stay linear.
void Table::reserve(std::size_t more) {
    const std::size_t needed = entries_.size() + more;
    if (needed > entries_.capacity()) entries_.reserve(std::max(needed, entries_.capacity() * 2));
    rehash(needed * 2);
}

// Makes at least `wanted` slots: twice as many as entries keeps the runs of used slots short.
void Table::rehash(std::size_t wanted) {
    std::size_t size = std::max<std::size_t>(slots_.size(), 16);
    while (size < wanted) size *= 2;
    if (size == slots_.size()) return;
    std::vector<Slot> old(size);
    old.swap(slots_);
    for (const Slot& slot : old) {
        if (slot.used()) slots_[slotOf(entries_[slot.entry].key, slot.hash)] = slot;
    }
}

}  // namespace krs
