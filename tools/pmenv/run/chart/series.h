// series.h - one figure over time, in a bounded number of columns.
//
// A recording may be ten hours long, with four figures a second and fifty engines; a picture is a thousand pixels wide. So
// the figures are gathered into columns of equal width while they are read, and whenever there are too many columns, each
// two become one. A column keeps the least, the largest and the mean, so that a spike of one second stays visible.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

class Series {
public:
    struct Column {
        double least = 0;
        double most = 0;
        double sum = 0;      ///< of value times seconds
        double seconds = 0;  ///< for which the figure is known

        bool known() const { return seconds > 0; }
        double mean() const { return sum / seconds; }
        void add(double value, double forSeconds);
        void add(const Column& other);
    };

    static constexpr std::size_t kMostColumns = 1200;
    static constexpr double kFinest = 0.25;  ///< seconds, the usual interval of a watch

    /// Takes what the figure was in an interval, in seconds since the start; empty where it is not known. Series to which
    /// the same intervals were added have the same columns.
    void add(double from, double to, std::optional<double> value);

    const std::vector<Column>& columns() const { return columns_; }
    /// The width of a column in seconds.
    double width() const { return width_; }
    /// Where the last interval ended; within the last column or half of one further.
    double end() const { return end_; }

    bool anyKnown() const;
    /// Seconds in which nothing is known, of those that were added.
    double unknownSeconds() const;
    /// The largest that was ever added; 0 where nothing is known.
    double most() const;

private:
    void widenFor(double to);

    std::vector<Column> columns_;
    double width_ = kFinest;
    double end_ = 0;
};
