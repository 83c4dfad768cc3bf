#include "chart/markup.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace {

struct Character {
    std::size_t bytes = 1;
    std::uint32_t code = 0;
    bool valid = false;
};

// The next character; a byte that begins no whole, shortest UTF-8 sequence is not valid.
Character nextCharacter(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) return {1, first, true};
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    if (length == 1 || first > 0xF7 || text.size() < length) return {};
    std::uint32_t code = first & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) return {};
        code = code << 6 | (next & 0x3F);
    }
    constexpr std::uint32_t kLeast[] = {0x80, 0x800, 0x10000};  // of two bytes, three and four
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < kLeast[length - 2] || code > 0x10FFFF || isSurrogate) return {};
    return {length, code, true};
}

constexpr const char* kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// Characters that are not seen, change how others are shown, or may not stand in XML.
bool isUnseen(std::uint32_t code) {
    const auto within = [code](std::uint32_t first, std::uint32_t last) { return code >= first && code <= last; };
    return within(0x80, 0x9F) || code == 0xAD || code == 0x61C || within(0x200B, 0x200F) || within(0x2028, 0x202E) ||
           within(0x2060, 0x206F) || code == 0xFEFF || within(0xFFF9, 0xFFFB) || (code & 0xFFFE) == 0xFFFE ||
           within(0xFDD0, 0xFDEF) || within(0xE0000, 0xE0FFF);
}

// The symbols that show control characters begin at U+2400.
std::string controlSymbol(std::uint32_t code) {
    const std::uint32_t symbol = code == 0x7F ? 0x2421 : 0x2400 + code;
    return {static_cast<char>(0xE2), static_cast<char>(0x80 | (symbol >> 6 & 0x3F)),
            static_cast<char>(0x80 | (symbol & 0x3F))};
}

std::string shownCode(std::uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "[U+%04X]", static_cast<unsigned>(code));
    return text;
}

void appendCharacter(std::string& to, const Character& character, std::string_view bytes) {
    switch (character.code) {
        case '<':
            to += "&lt;";
            return;
        case '>':
            to += "&gt;";
            return;
        case '&':
            to += "&amp;";
            return;
        case '"':
            to += "&quot;";
            return;
        case '\'':
            to += "&#39;";
            return;
        default:
            break;
    }
    if (character.code < 0x20 || character.code == 0x7F) {
        to += controlSymbol(character.code);
    } else if (isUnseen(character.code)) {
        to += shownCode(character.code);
    } else {
        to += bytes;
    }
}

std::string withDecimals(double number, int decimals) {
    char text[400];  // the largest number has 309 digits
    std::snprintf(text, sizeof text, "%.*f", decimals, number);
    std::string shown = text;
    if (shown.find('.') != std::string::npos) {
        shown.erase(shown.find_last_not_of('0') + 1);
        if (shown.back() == '.') shown.pop_back();
    }
    return shown == "-0" ? "0" : shown;
}

}  // namespace

std::string escaped(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const Character character = nextCharacter(text);
        if (character.valid) {
            appendCharacter(shown, character, text.substr(0, character.bytes));
        } else {
            shown += kReplacement;
        }
        text.remove_prefix(character.bytes);
    }
    return shown;
}

std::string shortened(std::string_view text, std::size_t characters) {
    std::size_t end = 0;
    for (std::size_t i = 0; i < characters && end < text.size(); ++i) end += nextCharacter(text.substr(end)).bytes;
    return std::string(text.substr(0, end)) + (end < text.size() ? "…" : "");
}

std::string shortNumber(double number) {
    const double size = std::fabs(number);
    return withDecimals(number, size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 4);
}

std::string exactNumber(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", number);
    return text;
}

std::string coordinate(double number) { return withDecimals(number, 1); }

std::string place(double share) { return withDecimals(100 * std::clamp(share, 0.0, 1.0), 3) + "%"; }

std::string element(std::string_view name, std::string_view attributes, std::string_view content) {
    std::string text;
    text.reserve(2 * name.size() + attributes.size() + content.size() + 8);
    text.append("<").append(name);
    if (!attributes.empty()) text.append(attributes.front() == ' ' ? "" : " ").append(attributes);
    return text.append(">").append(content).append("</").append(name).append(">");
}

std::string textElement(std::string_view name, std::string_view text) { return element(name, "", escaped(text)); }
