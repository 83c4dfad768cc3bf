#include "keys.h"

#include <array>
#include <cstring>

namespace {

constexpr char kEscape = '\x1b';
constexpr std::size_t kLongest = 8;  // real ones are shorter; a terminal that sends more is not waited for

struct Sequence {
    const char* bytes;
    Key key;
};

// What terminals send in either mode of their arrow keys, and for the keys above these.
constexpr std::array<Sequence, 14> kSequences{{{"\x1b[A", Key::Up},
                                               {"\x1bOA", Key::Up},
                                               {"\x1b[B", Key::Down},
                                               {"\x1bOB", Key::Down},
                                               {"\x1b[5~", Key::PageUp},
                                               {"\x1b[6~", Key::PageDown},
                                               {"\x1b[H", Key::Top},
                                               {"\x1bOH", Key::Top},
                                               {"\x1b[1~", Key::Top},
                                               {"\x1b[7~", Key::Top},
                                               {"\x1b[F", Key::Bottom},
                                               {"\x1bOF", Key::Bottom},
                                               {"\x1b[4~", Key::Bottom},
                                               {"\x1b[8~", Key::Bottom}}};

Key keyOf(const std::string& sequence) {
    for (const Sequence& known : kSequences) {
        if (sequence == known.bytes) return known.key;
    }
    return Key::Other;
}

Key keyOf(char letter) {
    switch (letter) {
        case 'q':
        case 'Q':
            return Key::Quit;
        case 'k':
            return Key::Up;
        case 'j':
            return Key::Down;
        case 'b':
            return Key::PageUp;
        case ' ':
            return Key::PageDown;
        case 'g':
            return Key::Top;
        case 'G':
            return Key::Bottom;
        default:
            return Key::Other;
    }
}

// Behind ESC and '[' or 'O' come digits and signs, and one letter or '~' at the end.
bool complete(const std::string& sequence) {
    return sequence.size() > 2 && sequence.back() >= '@' && sequence.back() <= '~';
}

}  // namespace

std::optional<Key> KeyReader::add(int byte) {
    const char character = static_cast<char>(byte);
    const bool begins = sequence_.size() == 1 && (character == '[' || character == 'O');
    if (sequence_.empty() || (sequence_.size() == 1 && !begins)) {
        sequence_.assign(character == kEscape ? 1 : 0, kEscape);
        if (character == kEscape) return std::nullopt;
        return keyOf(character);
    }
    sequence_ += character;
    if (!complete(sequence_) && sequence_.size() < kLongest) return std::nullopt;
    const Key key = keyOf(sequence_);
    sequence_.clear();
    return key;
}
