// repeated.h - makes long texts.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// `text`, `times` times in a row.
inline std::string repeated(std::string_view text, std::size_t times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}
