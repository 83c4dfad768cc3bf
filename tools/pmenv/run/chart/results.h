// results.h - response times that a load tool has written, gathered for a chart.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The response times that fall into one column of the chart, counted in classes that are 2 % wide. So a percentile is at
/// most 1 % off, and a column takes the same memory for ten requests and for a billion.
class ResponseTimes {
public:
    ResponseTimes();
    void add(double milliseconds);

    std::uint64_t count() const { return count_; }
    /// The smallest value that so many per cent do not exceed; there must be values.
    double percentile(double percent) const;

private:
    std::vector<std::uint64_t> classes_;
    std::uint64_t count_ = 0;
};

/// The results of the time that a chart shows.
class Results {
public:
    /// From a moment, in seconds since 1970, for so long.
    Results(double start, double seconds);

    /// Adds a file of results: the columns `time,value`, or the CSV of JMeter or k6, told apart by the first line. Throws
    /// Failure, "NAME:LINE: what is wrong and what to do", when nothing in it can be used.
    void read(std::istream& input, const std::string& name);

    const std::vector<ResponseTimes>& columns() const { return columns_; }
    double width() const { return width_; }  ///< of a column, in seconds

    std::uint64_t used() const { return used_; }
    std::uint64_t failed() const { return failed_; }  ///< of these; they count like the others
    std::uint64_t outside() const { return outside_; }
    /// What else the reader of the chart must know, such as rows that could not be used.
    const std::vector<std::string>& remarks() const { return remarks_; }

private:
    struct Row;
    void add(const Row& row);

    double start_;
    double seconds_;
    double width_;
    std::vector<ResponseTimes> columns_;
    std::uint64_t used_ = 0;
    std::uint64_t failed_ = 0;
    std::uint64_t outside_ = 0;
    std::vector<std::string> remarks_;
};

/// Seconds since 1970, from "1763764568", milli-, micro- or nanoseconds of the same, told apart by their size, or a date
/// and time, "2026-11-21T22:36:08.123Z", "2026/11/21 22:36:08.123+01:00"; without a zone it is UTC.
std::optional<double> parseMoment(std::string_view text);
