// RWSet.h - a hash set of strings that holds what it is given, without owning it.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>
#include <unordered_set>

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
    explicit RWSet(std::size_t capacity = RWCollection::DEFAULT_CAPACITY) : strings_(capacity) {}

    /// Inserts `string`, unless an equal one is there already; returns the one that is in the set.
    RWCollectableString* insert(RWCollectableString* string) { return *strings_.insert(string).first; }

    /// Takes the string that equals `*string` out of the set and returns it; null when there is none.
    RWCollectableString* remove(const RWCollectableString* string) {
        const auto found = strings_.find(const_cast<RWCollectableString*>(string));
        if (found == strings_.end()) return nullptr;
        RWCollectableString* const removed = *found;
        strings_.erase(found);
        return removed;
    }

    /// How many strings the set holds.
    std::size_t entries() const { return strings_.size(); }

private:
    struct Hash {
        std::size_t operator()(const RWCollectableString* string) const {
            return std::hash<std::string_view>{}({string->data(), string->length()});
        }
    };
    struct Equal {
        bool operator()(const RWCollectableString* left, const RWCollectableString* right) const {
            return *left == *right;
        }
    };

    std::unordered_set<RWCollectableString*, Hash, Equal> strings_;
};
