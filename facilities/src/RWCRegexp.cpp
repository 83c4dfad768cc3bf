#include "RWCRegexp.h"

#include <bitset>
#include <cstring>
#include <stdexcept>

namespace {

constexpr unsigned kMaxPieces = 32;

// Reads "[...]" from `*at`, which points at the bracket, and leaves it behind the closing one.
std::bitset<256> parseSet(const char** at) {
    const char* next = *at + 1;
    const bool negated = *next == '^';
    if (negated) ++next;
    std::bitset<256> set;
    for (; *next != ']'; ++next) {
        if (*next == '\0') throw std::invalid_argument("RWCRegexp: the set has no closing ]");
        set.set(static_cast<unsigned char>(*next));
    }
    *at = next + 1;
    return negated ? ~set : set;
}

// Reads the characters that one piece accepts, its + excepted.
std::bitset<256> parsePiece(const char** at) {
    if (**at == '+') throw std::invalid_argument("RWCRegexp: nothing to repeat before +");
    if (**at == '[') return parseSet(at);
    std::bitset<256> literal;
    literal.set(static_cast<unsigned char>(*(*at)++));
    return literal;
}

}  // namespace

RWCRegexp::RWCRegexp(const char* pattern) {
    if (pattern == nullptr || *pattern == '\0') throw std::invalid_argument("RWCRegexp: the pattern is empty");
    unsigned pieces = 0;
    for (const char* at = pattern; *at != '\0'; ++pieces) {
        if (pieces == kMaxPieces) throw std::invalid_argument("RWCRegexp: the pattern is too long");
        if (*at != '[' && repeating_ == 0 && anchorDistance_ == npos) {
            anchorDistance_ = pieces;
            anchor_ = *at;
        }
        const std::bitset<256> accepted = parsePiece(&at);
        last_ = Pieces{1} << pieces;
        for (std::size_t character = 0; character < accepted.size(); ++character) {
            if (accepted[character]) accepting_[character] |= last_;
        }
        if (*at == '+') {
            repeating_ |= last_;
            ++at;
        }
    }
}

// All attempts run at once, as a set of pieces, so each of the three passes looks at a character once. Trying one start
// after the other would be quadratic in a text full of openings that never close.
//
// The match that ends first need not be the longest, nor begin leftmost. But the leftmost match can end there too: its
// run is at least as far into the pattern as a run that begins later, so before the later one can end first the two
// meet in a piece, and from there on go the same way. Hence: the first end, the leftmost beginning that leads to it,
// the longest run from there.
std::size_t RWCRegexp::search(const char* text, std::size_t length, std::size_t* matched, std::size_t start) const {
    *matched = 0;
    start = firstCandidate(text, length, start);
    if (start == npos) return npos;
    const std::size_t end = endOfFirstMatch(text, length, start);
    if (end == npos) return npos;
    const std::size_t beginning = leftmostBeginning(text, start, end);
    *matched = longestEnd(text, length, beginning) - beginning;
    return beginning;
}

// The first position at or after `start` where a match could begin, npos when there is none. Most texts hold no match, and
// looking for a single character is several times as fast as looking at each.
std::size_t RWCRegexp::firstCandidate(const char* text, std::size_t length, std::size_t start) const {
    if (anchorDistance_ == npos) return start;
    if (start > length || length - start <= anchorDistance_) return npos;
    const char* const from = text + start + anchorDistance_;
    const void* const anchor = std::memchr(from, anchor_, static_cast<std::size_t>(text + length - from));
    return anchor != nullptr ? static_cast<std::size_t>(static_cast<const char*>(anchor) - text) - anchorDistance_
                             : npos;
}

// In the next three, `open` are the pieces that may take the next character, `taken` those that do.

std::size_t RWCRegexp::endOfFirstMatch(const char* text, std::size_t length, std::size_t start) const {
    Pieces open = 1;
    for (std::size_t position = start; position < length; ++position) {
        const Pieces taken = open & accepting(text[position]);
        if ((taken & last_) != 0) return position + 1;
        open = taken << 1 | (taken & repeating_) | 1;
    }
    return npos;
}

// Backwards from an end of a match.
std::size_t RWCRegexp::leftmostBeginning(const char* text, std::size_t start, std::size_t end) const {
    std::size_t beginning = end;
    Pieces open = last_;
    for (std::size_t position = end; open != 0 && position-- > start;) {
        const Pieces taken = open & accepting(text[position]);
        if ((taken & 1) != 0) beginning = position;
        open = taken >> 1 | (taken & repeating_);
    }
    return beginning;
}

std::size_t RWCRegexp::longestEnd(const char* text, std::size_t length, std::size_t beginning) const {
    std::size_t end = beginning;
    Pieces open = 1;
    for (std::size_t position = beginning; open != 0 && position < length; ++position) {
        const Pieces taken = open & accepting(text[position]);
        if ((taken & last_) != 0) end = position + 1;
        open = taken << 1 | (taken & repeating_);
    }
    return end;
}
