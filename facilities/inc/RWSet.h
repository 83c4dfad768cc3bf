// RWSet.h - a set of strings that it does not own, compared by hash.
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

/// Constants of the collections.
struct RWCollection {
    static constexpr std::size_t DEFAULT_CAPACITY = 64;  ///< strings that a set holds before it first grows
};

/// A set of pointers to strings, no two of which are equal. It never copies or deletes a string; the caller keeps an
/// inserted string alive while it is in the set. Belongs to one thread at a time.
class RWSet {
public:
    /// Creates an empty set with room for `capacity` strings; it grows when there are more.
    explicit RWSet(std::size_t capacity = RWCollection::DEFAULT_CAPACITY) { members_.reserve(capacity); }

    /// Inserts `string` unless the set has an equal one. Returns the one that is in the set.
    RWCollectableString* insert(RWCollectableString* string) {
        const std::size_t hash = hashOf(*string);
        const auto present = find(*string, hash);
        if (present != members_.rend()) return present->string;
        members_.push_back({hash, string});
        return string;
    }

    /// Removes the string that equals `*string` from the set and returns it; null when there is none.
    RWCollectableString* remove(const RWCollectableString* string) {
        const auto present =
            !members_.empty() && members_.back().string == string ? members_.rbegin() : find(*string, hashOf(*string));
        if (present == members_.rend()) return nullptr;
        RWCollectableString* const removed = present->string;
        members_.erase(std::next(present).base());
        return removed;
    }

    /// The number of strings in the set.
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

    // Ordered by age, the newest last. The texts of a chain of references are few and come and go at the end, so
    // searching their hashes from the end takes less time than buckets would.
    std::vector<Member> members_;
};
