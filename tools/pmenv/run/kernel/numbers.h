// numbers.h - the words and numbers of the kernel's files.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kernel {

/// The whole word as a number without a sign; empty for anything else, and for what does not fit 64 bits.
inline std::optional<std::uint64_t> number(std::string_view word, int base = 10) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
    if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
    return value;
}

/// Takes the text up to the next `end`, which is skipped, or all of it.
inline std::string_view takeUntil(std::string_view* text, char end) {
    const std::size_t length = text->find(end);
    const std::string_view taken = text->substr(0, length);
    text->remove_prefix(length == std::string_view::npos ? text->size() : length + 1);
    return taken;
}

inline std::string_view takeLine(std::string_view* text) { return takeUntil(text, '\n'); }

/// Takes the next word of a line, blanks and tabs around it skipped; "" at the end.
inline std::string_view takeWord(std::string_view* line) {
    const auto isBlank = [](char letter) { return letter == ' ' || letter == '\t'; };
    const auto begin = std::find_if_not(line->begin(), line->end(), isBlank);
    const auto end = std::find_if(begin, line->end(), isBlank);
    const std::size_t from = static_cast<std::size_t>(begin - line->begin());
    const std::size_t to = static_cast<std::size_t>(end - line->begin());
    const std::string_view word = line->substr(from, to - from);
    line->remove_prefix(to);
    return word;
}

/// The number behind `name` in lines of the form "name number".
inline std::optional<std::uint64_t> numberNamed(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        std::string_view line = takeLine(&text);
        if (takeWord(&line) != name) continue;
        return number(takeWord(&line));
    }
    return std::nullopt;
}

}  // namespace kernel
