#include "check/formats/codeUnits.h"

#include <algorithm>
#include <string_view>

#include "text.h"

std::size_t CodeUnits::Cursor::unitsBefore(int lineNumber, const std::string& line, std::size_t position) {
    if (lineNumber != line_ || position < position_) position_ = units_ = 0;
    line_ = lineNumber;
    units_ += utf16Length(std::string_view(line).substr(position_, position - position_));
    position_ = position;
    return units_;
}

UnitColumns CodeUnits::columnsOf(const CheckedFile& checked, const CheckFinding& finding) {
    const std::string& line = checked.sourceOf(finding);
    const std::size_t begin = std::min(finding.column - 1, line.size());
    const std::size_t end = std::min(begin + finding.length, line.size());
    return {begin_.unitsBefore(finding.line, line, begin) + 1, end_.unitsBefore(finding.line, line, end) + 1};
}
