#include "recording/texts.h"

#include <cstdio>
#include <cstring>

#include "output.h"

namespace recording {

namespace {

unsigned byteAt(std::string_view text, std::size_t position) {
    return position < text.size() ? static_cast<unsigned char>(text[position]) : 0;
}

// How many bytes the character takes that begins here; 0 where none does. Forms longer than needed, halves of surrogate
// pairs and what lies beyond the last character are none.
std::size_t characterLength(std::string_view text, std::size_t position) {
    const unsigned first = byteAt(text, position), second = byteAt(text, position + 1);
    const auto follows = [&](std::size_t i) { return (byteAt(text, position + i) & 0xC0U) == 0x80; };
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return follows(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        const bool allowed = (first != 0xE0 || second >= 0xA0) && (first != 0xED || second < 0xA0);
        return allowed && follows(1) && follows(2) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool allowed = (first != 0xF0 || second >= 0x90) && (first != 0xF4 || second < 0x90);
        return allowed && follows(1) && follows(2) && follows(3) ? 4 : 0;
    }
    return 0;
}

int hexDigit(char digit) {
    constexpr char kDigits[] = "0123456789abcdef";
    const char* const found = digit == '\0' ? nullptr : std::strchr(kDigits, digit);
    return found == nullptr ? -1 : static_cast<int>(found - kDigits);
}

// The byte that "\xNN" stands for at this place; -1 where there is none.
int escapedByte(std::string_view text, std::size_t position) {
    if (position + 3 >= text.size() || text[position + 1] != 'x') return -1;
    const int high = hexDigit(text[position + 2]), low = hexDigit(text[position + 3]);
    return high < 0 || low < 0 ? -1 : 16 * high + low;
}

}  // namespace

std::string toUtf8(std::string_view bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size();) {
        const std::size_t length = characterLength(bytes, i);
        if (length == 0) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", byteAt(bytes, i));
            text += escape;
        } else if (bytes[i] == '\\') {
            text += "\\\\";
        } else {
            text += bytes.substr(i, length);
        }
        i += length == 0 ? 1 : length;
    }
    return text;
}

std::string fromUtf8(std::string_view text) {
    if (text.find('\\') == std::string_view::npos) return std::string(text);
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int escaped = text[i] == '\\' ? escapedByte(text, i) : -1;
        if (escaped >= 0) {
            bytes += static_cast<char>(escaped);
            i += 3;
            continue;
        }
        bytes += text[i];
        if (text.substr(i, 2) == "\\\\") ++i;
    }
    return bytes;
}

std::string jsonText(std::string_view bytes) { return Json(toUtf8(bytes)).dump(); }

}  // namespace recording
