// RWCRegexp.h - a regular expression in a small language, compiled once and searched in linear time.
//
// The language: literal characters, character sets [abc] and [^abc] (no ranges, no escapes), and + behind either for
// one or more. Every other character, parentheses and braces included, stands for itself. A character or set with its +
// is a piece.
//
// Threads: a compiled expression is never changed by a search and may be used by many threads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "KrfExport.h"

/// A compiled pattern.
class KRF_EXPORT RWCRegexp {
public:
    /// No position: what search() answers when there is no match.
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    /// Compiles `pattern`. Throws std::invalid_argument for a null or empty pattern, a set that is not closed, a + with
    /// nothing before it, or a pattern of more than 32 pieces.
    explicit RWCRegexp(const char* pattern);

    /// The position of the leftmost match in the `length` characters at `text` that begins at or after `start`, and in
    /// `*matched` the length of its longest run; npos, and `*matched` 0, when there is none. The time is linear in
    /// `length`, whatever the text.
    std::size_t search(const char* text, std::size_t length, std::size_t* matched, std::size_t start = 0) const;

private:
    using Pieces = std::uint32_t;  // a set of pieces, one bit for each, the first piece lowest

    KRF_HIDDEN std::size_t firstCandidate(const char* text, std::size_t length, std::size_t start) const;
    KRF_HIDDEN std::size_t endOfFirstMatch(const char* text, std::size_t length, std::size_t start) const;
    KRF_HIDDEN std::size_t leftmostBeginning(const char* text, std::size_t start, std::size_t end) const;
    KRF_HIDDEN std::size_t longestEnd(const char* text, std::size_t length, std::size_t beginning) const;
    Pieces accepting(char character) const { return accepting_[static_cast<unsigned char>(character)]; }

    std::array<Pieces, 256> accepting_{};  // by unsigned character: the pieces that accept it
    Pieces repeating_ = 0;                 // those followed by +
    Pieces last_ = 0;

    // A character that every match has at a fixed distance from its beginning; npos when the pattern has none.
    std::size_t anchorDistance_ = npos;
    char anchor_ = '\0';
};
