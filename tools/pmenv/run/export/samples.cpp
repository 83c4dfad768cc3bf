#include "export/samples.h"

#include <cmath>
#include <limits>
#include <utility>

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

std::int64_t secondOf(std::int64_t milliseconds) { return milliseconds / 1000; }

}  // namespace

Samples::Samples(std::vector<bool> isCounted)
    : isCounted_(std::move(isCounted)), now_(isCounted_.size()), isTold_(isCounted_.size()) {}

void Samples::add(std::int64_t time, const Values& values) {
    time_ = time;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!values[i]) continue;
        now_[i] = isCounted_[i] ? now_[i] + *values[i] : *values[i];
        isTold_[i] = true;
    }
    if (times_.empty() || secondOf(time) > secondOf(times_.back())) keep();
}

void Samples::finish() {
    if (!times_.empty() && time_ > times_.back()) keep();
}

void Samples::keep() {
    times_.push_back(time_);
    for (std::size_t i = 0; i < now_.size(); ++i) values_.push_back(isTold_[i] ? now_[i] : kNone);
    isTold_.assign(isTold_.size(), false);
}

std::optional<double> Samples::value(std::size_t moment, std::size_t figure) const {
    const double value = values_[moment * now_.size() + figure];
    return std::isnan(value) ? std::nullopt : std::optional(value);
}
