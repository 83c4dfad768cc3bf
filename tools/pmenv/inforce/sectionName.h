// sectionName.h - the [section] lines of a settings file, which the library reads without telling of them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

struct SectionName {
    std::string name;    ///< "" for []
    std::size_t column;  ///< where it begins, in bytes from 1
};

/// Of a line that the library accepts; none when it is no [section] line.
std::optional<SectionName> sectionIn(std::string_view line);
