// samples.h - figures of one engine, or of the machine, at some moments. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "evidenceMetrics.h"

/// Keeps a moment of each second. Takes 8 bytes for it and for each figure.
class Samples {
public:
    /// Says for each figure whether it tells what happened in an interval, and is to be counted up.
    explicit Samples(std::vector<bool> isCounted);

    /// Adds what an interval tells that ended at `time`, in milliseconds since 1970.
    void add(std::int64_t time, const Values& values);

    /// Keeps also the last moment.
    void finish();

    std::size_t size() const { return times_.size(); }
    std::int64_t time(std::size_t moment) const { return times_[moment]; }
    /// Empty when no interval told the figure since the moment before.
    std::optional<double> value(std::size_t moment, std::size_t figure) const;

private:
    void keep();

    std::vector<bool> isCounted_;
    std::vector<double> now_;   // counted up, or as told last
    std::vector<bool> isTold_;  // since the last moment that was kept
    std::int64_t time_ = 0;     // of the last interval
    std::vector<std::int64_t> times_;
    std::vector<double> values_;  // the figures of each moment; not a number where there is none
};
