#include "text.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <cwctype>

namespace {

// The next character of a text: its bytes and its columns. `valid` is false for a byte that begins no character.
struct Character {
    std::size_t bytes = 1;
    std::size_t columns = 1;
    bool valid = false;
    wchar_t code = 0;
};

Character characterAt(std::string_view text, std::size_t position) {
    // Set when characters are first examined, because a command that only prints a value starts faster without it.
    static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    static_cast<void>(locale);
    std::mbstate_t state{};
    Character character;
    const std::size_t bytes = std::mbrtowc(&character.code, text.data() + position, text.size() - position, &state);
    if (bytes == static_cast<std::size_t>(-1) || bytes == static_cast<std::size_t>(-2)) return character;
    character.bytes = std::max<std::size_t>(bytes, 1);
    character.valid = true;
    const int columns = wcwidth(character.code);
    character.columns = columns > 0 ? static_cast<std::size_t>(columns) : 0;
    return character;
}

std::string escaped(unsigned char byte) {
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            break;
    }
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", byte);
    return text;
}

}  // namespace

std::size_t displayWidth(const std::string& text) {
    std::size_t width = 0;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        width += character.columns;
        i += character.bytes;
    }
    return width;
}

std::string cutToWidth(const std::string& text, std::size_t width) {
    if (width == 0) return {};
    if (displayWidth(text) <= width) return text;
    std::size_t used = 0;
    std::size_t end = 0;
    while (end < text.size()) {
        const Character character = characterAt(text, end);
        if (used + character.columns > width - 1) break;
        used += character.columns;
        end += character.bytes;
    }
    return text.substr(0, end) + "…";
}

std::string printable(const std::string& text) {
    std::string shown;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        if (character.valid && !std::iswcntrl(static_cast<std::wint_t>(character.code))) {
            shown.append(text, i, character.bytes);
        } else {
            for (std::size_t k = 0; k < character.bytes; ++k) shown += escaped(static_cast<unsigned char>(text[i + k]));
        }
        i += character.bytes;
    }
    return shown;
}

std::string unmistakable(const std::string& text) {
    const std::string shown = printable(text);
    const bool isPlain = !text.empty() && shown == text && text.front() != ' ' && text.back() != ' ' &&
                         text.front() != '"' && text.front() != '(';
    if (isPlain) return text;
    std::string quoted;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find_first_of("\"\\", begin), text.size());
        quoted += printable(text.substr(begin, end - begin));
        if (end < text.size()) quoted.append("\\").append(1, text[end]);
        begin = end + 1;
    }
    return "\"" + quoted + "\"";
}

std::size_t utf16Length(std::string_view text) {
    constexpr wchar_t kLastOfOneUnit = 0xffff;
    std::size_t units = 0;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        units += character.code > kLastOfOneUnit ? 2 : 1;
        i += character.bytes;
    }
    return units;
}
