// comparison.h - in what two settings files differ, and why, as plain data.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "diff/causes.h"
#include "diff/side.h"

/// The value of one side.
struct ComparedValue {
    FilePlace place{};
    std::optional<Excerpt> shown{};  ///< none when it cannot be read
    std::string problem{};           ///< why not
};

/// A setting that is not the same on both sides.
struct Difference {
    std::string key;
    std::optional<ComparedValue> a{};  ///< none for a setting that only the other side has
    std::optional<ComparedValue> b{};
    std::string leftOut{};  ///< why the other side has none, though its file has an entry
    Causes causes{};        ///< of one that both have

    /// Both look alike, because they differ in what is hidden.
    bool isHidden() const;
};

struct Comparison {
    std::string a;  ///< the files
    std::string b;
    std::vector<Difference> differences;  ///< in the order of A, then what only B has
    std::size_t same = 0;                 ///< how many settings do not differ
};

Comparison compareSides(const Side& a, const Side& b);
