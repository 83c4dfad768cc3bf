// RWCString.h - the string of the resolver: a growable text that can be searched and edited in place.
#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "RWCRegexp.h"

/// A text. Copies are deep; a text belongs to one thread at a time.
class RWCString {
public:
    /// The empty text.
    RWCString() = default;
    /// Copies `text`; null counts as the empty text.
    RWCString(const char* text) : room_(text != nullptr ? text : "") {}
    /// Makes a deep copy.
    RWCString(const RWCString& other) : room_(other.view()) {}
    /// Takes the text over and leaves the other one empty.
    RWCString(RWCString&& other) noexcept { swap(other); }
    /// Replaces the text.
    RWCString& operator=(RWCString other) noexcept {
        swap(other);
        return *this;
    }
    /// Copies `text`, which may be part of this text; null counts as the empty text. Keeps its memory.
    RWCString& operator=(const char* text) {
        room_ = text != nullptr ? text : "";
        begin_ = 0;
        return *this;
    }
    ~RWCString() = default;

    /// The characters, with a NUL at the end. Valid until the text is changed.
    const char* data() const { return room_.c_str() + begin_; }
    /// The number of characters, without the NUL at the end.
    std::size_t length() const { return room_.size() - begin_; }
    /// The character at `position`; NUL at length().
    char operator[](std::size_t position) const { return data()[position]; }

    /// The leftmost match of `pattern` at or after `start`, and its length; RWCRegexp::npos when there is none.
    std::size_t index(const RWCRegexp& pattern, std::size_t* matched, std::size_t start = 0) const {
        return pattern.search(data(), length(), matched, start);
    }

    /// A copy of the `count` characters from `position` on, or of as many as there are.
    /// Throws std::out_of_range for a position beyond the end.
    RWCString operator()(std::size_t position, std::size_t count) const {
        return RWCString(view().substr(position, count));
    }

    /// Replaces the `count` characters from `position` on, or as many as there are, with `replacement`, which may be
    /// this text itself. Throws std::out_of_range for a position beyond the end. Moves only the shorter side of the
    /// text, so that many replacements near either end of a long text, all at its front for example, do not move the
    /// whole text each time.
    RWCString& replace(std::size_t position, std::size_t count, const RWCString& replacement) {
        if (position > length()) throw std::out_of_range("RWCString::replace: the position is behind the end");
        if (&replacement == this) return replace(position, count, RWCString(replacement));

        count = std::min(count, length() - position);
        if (position < length() - position - count) {
            replaceMovingFront(position, count, replacement.view());
        } else {
            room_.replace(begin_ + position, count, replacement.view());
        }
        return *this;
    }

    /// Appends `more`; null counts as the empty text.
    RWCString& operator+=(const char* more) {
        room_ += more != nullptr ? more : "";
        return *this;
    }

    /// `left` followed by `right`; null counts as the empty text.
    friend RWCString operator+(RWCString left, const char* right) {
        left += right;
        return left;
    }
    /// True when both have the same characters.
    friend bool operator==(const RWCString& left, const RWCString& right) { return left.view() == right.view(); }

private:
    explicit RWCString(std::string_view text) : room_(text) {}

    std::string_view view() const { return std::string_view(room_).substr(begin_); }

    void swap(RWCString& other) noexcept {
        room_.swap(other.room_);
        std::swap(begin_, other.begin_);
    }

    void replaceMovingFront(std::size_t position, std::size_t count, std::string_view replacement) {
        if (begin_ + count < replacement.size()) growAtFront(replacement.size());
        char* const from = room_.data() + begin_;
        begin_ = begin_ + count - replacement.size();
        char* const to = room_.data() + begin_;
        std::char_traits<char>::move(to, from, position);
        std::char_traits<char>::copy(to + position, replacement.data(), replacement.size());
    }

    // Adds at least the length of the text, so that growing it piece by piece moves each character only a few times.
    void growAtFront(std::size_t needed) {
        const std::size_t more = std::max(needed, length());
        room_.insert(0, more, '\0');
        begin_ += more;
    }

    std::string room_;       // free space at the front, into which the text may grow, and then the text
    std::size_t begin_ = 0;  // where the text begins
};
