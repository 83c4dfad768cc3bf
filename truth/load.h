// load.h - what makes load in a trial, and what happened to its requests.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "processes.h"
#include "record.h"

/// A stretch of CLOCK_MONOTONIC.
struct Window {
    std::int64_t fromNs = 0, toNs = 0;
};

/// What happened to the requests that were due in a window.
struct Truth {
    std::uint64_t due = 0;
    std::uint64_t late = 0;  ///< sent later than the tolerance, or not at all
    std::vector<std::uint64_t> lateBySecond;
    double p50Ms = 0, p99Ms = 0;  ///< of the lateness of all that was sent, also outside the window

    double share() const { return due == 0 ? 0 : static_cast<double>(late) / static_cast<double>(due); }
};

/// Makes load for the length of a scope.
class Load {
public:
    virtual ~Load() = default;
    virtual const std::deque<Process>& processes() const = 0;
    /// Of the process that was worst.
    virtual Truth worst(const Window& window) = 0;
};
