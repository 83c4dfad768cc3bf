// engines.h - the load engines of a trial, and what they know about themselves.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "processes.h"
#include "record.h"
#include "words.h"

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

/// Engines that send for the length of a scope.
class Engines {
public:
    /// Comes back when all of them have begun to send. Their files are made in these directories: one in memory, one on
    /// a disk. Throws NotHere with the reason when one cannot do what is asked of it.
    Engines(int count, Words words, const Groups& groups, const Scratch& memory, const Scratch& disk);

    const std::deque<Process>& processes() const { return processes_; }
    /// Of the one that was worst.
    Truth worst(const Window& window) const;

private:
    void awaitReady(const std::string& errors);

    std::deque<SharedRecord> records_;
    std::deque<Process> processes_;
};
