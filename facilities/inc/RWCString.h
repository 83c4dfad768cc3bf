// RWCString.h - the string of the resolution code: a growable text that can be searched and spliced in place.
#pragma once

#include <cstddef>
#include <string>

#include "RWCRegexp.h"

/// A text. Copies are deep; a text belongs to one thread at a time.
class RWCString {
public:
    RWCString() = default;
    /// Copies `text`; null counts as the empty text.
    RWCString(const char* text) : text_(text != nullptr ? text : "") {}

    /// The characters, ended by NUL. Valid until the text is changed.
    const char* data() const { return text_.c_str(); }
    std::size_t length() const { return text_.size(); }
    char operator[](std::size_t position) const { return text_[position]; }

    /// The leftmost match of `pattern` at or after `start`, and its length; RWCRegexp::npos when there is none.
    std::size_t index(const RWCRegexp& pattern, std::size_t* matched, std::size_t start = 0) const {
        return pattern.search(text_.data(), text_.size(), matched, start);
    }

    /// The `count` characters from `position` on, as a text of their own.
    RWCString operator()(std::size_t position, std::size_t count) const {
        return RWCString(text_.substr(position, count));
    }

    /// Puts `replacement` in the place of the `count` characters from `position` on.
    RWCString& replace(std::size_t position, std::size_t count, const RWCString& replacement) {
        text_.replace(position, count, replacement.text_);
        return *this;
    }

    RWCString& operator+=(const char* more) {
        text_ += more;
        return *this;
    }

    friend RWCString operator+(RWCString left, const char* right) { return left += right; }
    friend bool operator==(const RWCString& left, const RWCString& right) { return left.text_ == right.text_; }

private:
    explicit RWCString(std::string text) : text_(std::move(text)) {}

    std::string text_;
};
