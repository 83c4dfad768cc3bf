// codeUnits.h - places in a line, counted in UTF-16 code units, as most consumers of findings count them.
#pragma once

#include <cstddef>
#include <string>

#include "check/check.h"

/// Columns from 1; `end` is the one behind the text.
struct UnitColumns {
    std::size_t begin;
    std::size_t end;
};

/// Converts the columns of findings from bytes. Findings that come line by line and from left to right, as those of a
/// CheckedFile do, take linear time.
class CodeUnits {
public:
    UnitColumns columnsOf(const CheckedFile& checked, const CheckFinding& finding);

private:
    // Goes along a line.
    class Cursor {
    public:
        std::size_t unitsBefore(int lineNumber, const std::string& line, std::size_t position);

    private:
        int line_ = 0;
        std::size_t position_ = 0;
        std::size_t units_ = 0;
    };

    Cursor begin_;
    Cursor end_;
};
