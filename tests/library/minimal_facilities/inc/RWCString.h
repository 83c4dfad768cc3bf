#pragma once

#include <string>

#include "RWCRegexp.h"

class RWCString {
public:
    RWCString() = default;
    RWCString(const char* text) : text_(text != nullptr ? text : "") {}

    const char* data() const { return text_.c_str(); }
    std::size_t length() const { return text_.size(); }
    char operator[](std::size_t position) const { return text_[position]; }

    std::size_t index(const RWCRegexp& pattern, std::size_t* matched, std::size_t start = 0) const {
        return pattern.search(data(), length(), matched, start);
    }
    RWCString operator()(std::size_t position, std::size_t count) const {
        return text_.substr(position, count).c_str();
    }
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
    std::string text_;
};
