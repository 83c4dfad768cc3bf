// RWSet.h - a hash set of strings that holds what it is given, without owning it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <string_view>
#include <vector>

#include "RWCString.h"

/// A text that can be put into an RWSet.
class RWCollectableString : public RWCString {
public:
    using RWCString::RWCString;
    /// A copy of `text`.
    explicit RWCollectableString(const RWCString& text) : RWCString(text) {}
};

/// What the collections have in common.
struct RWCollection {
    static constexpr std::size_t DEFAULT_CAPACITY = 64;  ///< strings that a set holds before it first grows
};

/// A set of pointers to strings that are equal to no other in the set. It never copies or deletes a string; whoever
/// inserts one keeps it alive while it is in the set. Belongs to one thread at a time.
class RWSet {
public:
    /// An empty set with room for `capacity` strings; it grows when there are more.
    explicit RWSet(std::size_t capacity = RWCollection::DEFAULT_CAPACITY) { members_.reserve(capacity); }

    /// Inserts `string`, unless an equal one is there already; returns the one that is in the set.
    RWCollectableString* insert(RWCollectableString* string) {
        const std::size_t hash = hashOf(*string);
        const auto present = find(*string, hash);
        if (present != members_.rend()) return present->string;
        members_.push_back({hash, string});
        return string;
    }

    /// Takes the string that equals `*string` out of the set and returns it; null when there is none.
    RWCollectableString* remove(const RWCollectableString* string) {
        const auto present =
            !members_.empty() && members_.back().string == string ? members_.rbegin() : find(*string, hashOf(*string));
        if (present == members_.rend()) return nullptr;
        RWCollectableString* const removed = present->string;
        members_.erase(std::next(present).base());
        return removed;
    }

    /// How many strings the set holds.
    std::size_t entries() const { return members_.size(); }

private:
    struct Member {
        std::size_t hash;
        RWCollectableString* string;
    };

    static std::size_t hashOf(const RWCollectableString& string) {
        return std::hash<std::string_view>{}({string.data(), string.length()});
    }

    std::vector<Member>::reverse_iterator find(const RWCollectableString& string, std::size_t hash) {
        return std::find_if(members_.rbegin(), members_.rend(),
                            [&](const Member& member) { return member.hash == hash && *member.string == string; });
    }

    // The newest last. The texts of one chain of references are few and come and go at the end, so looking through their
    // hashes from there takes less time than buckets would.
    std::vector<Member> members_;
};
