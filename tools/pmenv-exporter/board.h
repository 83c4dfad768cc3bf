// board.h - what is known of the engines now, for whoever asks: written by the thread that watches, read by that which
// answers. Thread-safe.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "counters.h"

/// How an exposition is written.
enum class Form { Text, OpenMetrics };

class Board {
public:
    /// See Counters. Nothing is known yet.
    Board(const std::vector<std::string>& names, double tolerance, const ExpositionParts& parts);

    /// Takes the next interval, and the states as they are now.
    void add(const Evidence& evidence, Figures states);

    /// Everything up to the last interval. It is written once for all that ask between two intervals, and stays as it is.
    std::shared_ptr<const std::string> exposition(Form form) const;

    /// Whether an interval was added lately. Otherwise the watch hangs, and what is told is old.
    bool isFresh() const;

private:
    using Text = std::shared_ptr<const std::string>;

    ExpositionParts parts_;
    mutable std::mutex mutex_;  // for all that follows
    Counters counters_;
    Figures states_{};
    double added_;
    mutable Text text_;  // null when it has to be written
    mutable Text openMetrics_;
};
