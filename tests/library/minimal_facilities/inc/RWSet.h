#pragma once

#include <vector>

#include "RWCString.h"

class RWCollectableString : public RWCString {
public:
    using RWCString::RWCString;
    explicit RWCollectableString(const RWCString& text) : RWCString(text) {}
};

struct RWCollection {
    static constexpr std::size_t DEFAULT_CAPACITY = 4;
};

class RWSet {
public:
    explicit RWSet(std::size_t capacity = RWCollection::DEFAULT_CAPACITY) { strings_.reserve(capacity); }

    RWCollectableString* insert(RWCollectableString* string) {
        for (RWCollectableString* const present : strings_) {
            if (*present == *string) return present;
        }
        strings_.push_back(string);
        return string;
    }
    RWCollectableString* remove(const RWCollectableString* string) {
        for (auto present = strings_.begin(); present != strings_.end(); ++present) {
            if (!(**present == *string)) continue;
            RWCollectableString* const removed = *present;
            strings_.erase(present);
            return removed;
        }
        return nullptr;
    }
    std::size_t entries() const { return strings_.size(); }

private:
    std::vector<RWCollectableString*> strings_;
};
