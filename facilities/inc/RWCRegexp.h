// RWCRegexp.h - a regular expression in a small language, compiled once and searched in linear time.
//
// The language: literal characters, character sets [abc] and [^abc] (no ranges, no escapes), and + after either for one
// or more. Every other character, including parentheses and braces, stands for itself. A character or set with its + is
// a piece.
//
// Threads: a search does not change the compiled expression, so many threads may use one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "KrfExport.h"

/// A compiled pattern.
class KRF_EXPORT RWCRegexp {
public:
    /// No position: the result of search() when there is no match.
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    /// Compiles `pattern`. Throws std::invalid_argument for a null or empty pattern, a set that is not closed, a + with
    /// nothing before it, or a pattern of more than 32 pieces.
    explicit RWCRegexp(const char* pattern);

    /// The position of the leftmost match that begins at or after `start` in the `length` characters at `text`. Stores
    /// the length of the longest match there in `*matched`. Returns npos, with `*matched` 0, when there is none. Takes
    /// linear time in `length`, whatever the text.
    std::size_t search(const char* text, std::size_t length, std::size_t* matched, std::size_t start = 0) const;

private:
    using Pieces = std::uint32_t;  // a set of pieces, one bit for each, the first piece lowest

    KRF_HIDDEN std::size_t firstCandidate(const char* text, std::size_t length, std::size_t start) const;
    KRF_HIDDEN std::size_t endOfFirstMatch(const char* text, std::size_t length, std::size_t start) const;
    KRF_HIDDEN std::size_t leftmostBeginning(const char* text, std::size_t start, std::size_t end) const;
    KRF_HIDDEN std::size_t longestEnd(const char* text, std::size_t length, std::size_t beginning) const;
    Pieces accepting(char character) const { return accepting_[static_cast<unsigned char>(character)]; }

    std::array<Pieces, 256> accepting_{};  // by unsigned character: the pieces that accept it
    Pieces repeating_ = 0;                 // the pieces with a +
    Pieces last_ = 0;

    // A character that every match has at a fixed distance from its beginning; npos when the pattern has none.
    std::size_t anchorDistance_ = npos;
    char anchor_ = '\0';
};
