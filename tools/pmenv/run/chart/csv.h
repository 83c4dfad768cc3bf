// csv.h - reads comma-separated values row by row, in constant memory.
#pragma once

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

/// Fields may stand in quotation marks and then hold commas, line breaks and doubled quotation marks. Lines end with LF or
/// CR LF; a byte order mark in front of the first and empty lines are passed over.
class CsvReader {
public:
    /// Longer rows come from a quotation mark that is never closed.
    static constexpr std::size_t kLongestRow = 1 << 20;

    enum class Result { Row, TooLong, End };

    explicit CsvReader(std::istream& input);

    /// The next row. `TooLong`: there is more text in it than any honest row has; reading cannot go on.
    Result next(std::vector<std::string>* fields);

    /// The line in which the row began that was read last.
    std::size_t line() const { return rowLine_; }

private:
    Result readRow(std::vector<std::string>* fields);
    int take();

    std::streambuf& input_;
    std::size_t line_ = 1;
    std::size_t rowLine_ = 1;
    std::size_t taken_ = 0;
};
