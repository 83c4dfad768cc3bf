#pragma once

#include <cstddef>
#include <regex>
#include <string>

class RWCRegexp {
public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    explicit RWCRegexp(const char* pattern) : regex_(translated(pattern)) {}

    std::size_t search(const char* text, std::size_t length, std::size_t* matched, std::size_t start = 0) const {
        std::cmatch match;
        *matched = 0;
        if (start > length || !std::regex_search(text + start, text + length, match, regex_)) return npos;
        *matched = static_cast<std::size_t>(match.length());
        return start + static_cast<std::size_t>(match.position());
    }

private:
    // Outside sets, parentheses and braces stand for themselves.
    static std::string translated(const std::string& pattern) {
        std::string regex;
        bool inSet = false;
        for (const char character : pattern) {
            if (character == '[') inSet = true;
            if (character == ']') inSet = false;
            if (!inSet && std::string("(){}").find(character) != std::string::npos) regex += '\\';
            regex += character;
        }
        return regex;
    }

    std::regex regex_;
};
