// RWCRegexp.h - a regular expression in a small language, compiled once and searched in linear time.
//
// The language: literal characters, character sets [abc] and [^abc] (no ranges, no escapes), and + behind either for one
// or more. Every other character, parentheses and braces included, stands for itself.
//
// Threads: a compiled expression is never changed by a search and may be used by many threads.
#pragma once

#include <bitset>
#include <cstddef>
#include <vector>

#include "KrfExport.h"

class KRF_EXPORT RWCRegexp {
public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    /// Compiles `pattern`. Throws std::invalid_argument for an empty pattern, a set that is not closed, or a + with
    /// nothing before it, or a pattern of more than 16 pieces.
    explicit RWCRegexp(const char* pattern);

    /// The position of the leftmost match in the `length` characters at `text` that begins at or after `start`, and in
    /// `*matched` the length of its longest run; npos, and `*matched` 0, when there is none. The time is linear in
    /// `length`, whatever the text.
    std::size_t search(const char* text, std::size_t length, std::size_t* matched, std::size_t start = 0) const;

private:
    struct Piece {
        std::bitset<256> accepts;  // by unsigned character
        bool repeats = false;      // followed by +
    };

    std::size_t skipToStart(const char* text, std::size_t length, std::size_t position) const;

    std::vector<Piece> pieces_;
};
