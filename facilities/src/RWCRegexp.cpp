#include "RWCRegexp.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace {

constexpr std::size_t kMaxPieces = 16;

unsigned char byteAt(const char* text, std::size_t position) { return static_cast<unsigned char>(text[position]); }

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

}  // namespace

RWCRegexp::RWCRegexp(const char* pattern) {
    const char* at = pattern;
    while (*at != '\0') {
        Piece piece;
        if (*at == '+') throw std::invalid_argument("RWCRegexp: nothing to repeat before +");
        if (*at == '[') {
            piece.accepts = parseSet(&at);
        } else {
            piece.accepts.set(static_cast<unsigned char>(*at++));
        }
        if (*at == '+') {
            piece.repeats = true;
            ++at;
        }
        pieces_.push_back(piece);
    }
    if (pieces_.size() > kMaxPieces) throw std::invalid_argument("RWCRegexp: the pattern is too long");
    if (pieces_.empty()) throw std::invalid_argument("RWCRegexp: the pattern is empty");
}

// Runs all possible matches at once, one character at a time. began[i] is the start of the leftmost attempt that has
// matched the pieces up to i, npos for none; where two attempts meet in one piece, they end alike, so only the one that
// began first matters. That makes the time linear where trying one start after the other would be quadratic.
std::size_t RWCRegexp::search(const char* text, std::size_t length, std::size_t* matched, std::size_t start) const {
    std::array<std::size_t, kMaxPieces> began;
    began.fill(npos);
    const std::size_t last = pieces_.size() - 1;
    std::size_t bestStart = npos;
    std::size_t bestEnd = 0;

    bool running = false;
    for (std::size_t position = start; position < length; ++position) {
        if (!running) {
            if (bestStart != npos) break;
            position = skipToStart(text, length, position);
            if (position == length) break;
        }
        const unsigned char character = byteAt(text, position);
        running = false;
        for (std::size_t i = last + 1; i-- > 0;) {
            const std::size_t entering = i > 0 ? began[i - 1] : position;
            const std::size_t staying = pieces_[i].repeats ? began[i] : npos;
            const std::size_t attempt = pieces_[i].accepts[character] ? std::min(entering, staying) : npos;
            // Once there is a match, an attempt that began behind it can only lose.
            began[i] = attempt <= bestStart ? attempt : npos;
            running = running || began[i] != npos;
        }
        if (began[last] != npos) {
            bestStart = began[last];
            bestEnd = position + 1;
        }
    }
    *matched = bestStart == npos ? 0 : bestEnd - bestStart;
    return bestStart;
}

// The first position from `position` on at which a match could begin, `length` if there is none.
std::size_t RWCRegexp::skipToStart(const char* text, std::size_t length, std::size_t position) const {
    while (position < length && !pieces_.front().accepts[byteAt(text, position)]) ++position;
    return position;
}
