#include "chart/series.h"

#include <algorithm>
#include <cmath>
#include <utility>

void Series::Column::add(double value, double forSeconds) {
    least = known() ? std::min(least, value) : value;
    most = known() ? std::max(most, value) : value;
    sum += value * forSeconds;
    seconds += forSeconds;
}

void Series::Column::add(const Column& other) {
    if (!other.known()) return;
    least = known() ? std::min(least, other.least) : other.least;
    most = known() ? std::max(most, other.most) : other.most;
    sum += other.sum;
    seconds += other.seconds;
}

// The ends of the intervals do not fall together with those of the columns. An interval goes to the columns whose middle it
// contains, so that neither a sliver of it spoils its neighbour nor a column between two intervals stays empty; one that
// contains no middle goes to the column in which it lies.
void Series::add(double from, double to, std::optional<double> value) {
    if (!(from >= 0) || !(to > from) || !std::isfinite(to)) return;
    widenFor(to);
    if (!value || !std::isfinite(*value)) return;
    const auto columnAt = [this](double time) {
        return std::min(static_cast<std::size_t>(time / width_), columns_.size() - 1);
    };
    auto first = static_cast<std::size_t>(std::ceil(from / width_ - 0.5));
    auto end = static_cast<std::size_t>(std::ceil(to / width_ - 0.5));
    if (first >= end) {
        first = columnAt((from + to) / 2);
        end = first + 1;
    }
    for (std::size_t i = first; i < end; ++i) columns_[i].add(*value, (to - from) / static_cast<double>(end - first));
}

void Series::widenFor(double to) {
    end_ = std::max(end_, to);
    while (end_ / width_ > static_cast<double>(kMostColumns)) {
        std::vector<Column> halved((columns_.size() + 1) / 2);
        for (std::size_t i = 0; i < columns_.size(); ++i) halved[i / 2].add(columns_[i]);
        columns_ = std::move(halved);
        width_ *= 2;
    }
    // What does not reach the middle of a further column belongs to the last one.
    const auto count = static_cast<std::size_t>(std::max(1.0, std::ceil(end_ / width_ - 0.5)));
    columns_.resize(std::max(columns_.size(), count));
}

bool Series::anyKnown() const {
    return std::any_of(columns_.begin(), columns_.end(), [](const Column& column) { return column.known(); });
}

double Series::unknownSeconds() const {
    const auto unknown =
        std::count_if(columns_.begin(), columns_.end(), [](const Column& column) { return !column.known(); });
    return std::min(end_, static_cast<double>(unknown) * width_);
}

double Series::most() const {
    double most = 0;
    for (const Column& column : columns_) {
        if (column.known()) most = std::max(most, column.most);
    }
    return most;
}
