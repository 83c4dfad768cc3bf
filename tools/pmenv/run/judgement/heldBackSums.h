// heldBackSums.h - what held each engine back lately, as figures. Pure: no file, no clock.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "evidence/evidence.h"

/// Of one engine and the time since the figures were taken before.
struct HeldBackFigures {
    std::optional<double> heldBackPercent;   ///< of the time; empty where as much again or more is in doubt
    std::optional<double> throttledPercent;  ///< time of all processors that the quota denied its group; may pass 100
    int worstThread = 0;                     ///< the thread that had the least slack in any interval
    std::string worstThreadName;
    double worstThreadPercent = 0;  ///< of that interval it had something to do
};

class HeldBackSums {
public:
    /// A turn on a processor is late when a thread has waited for it longer than the tolerance.
    explicit HeldBackSums(double tolerance) : tolerance_(tolerance) {}

    /// Takes the next interval.
    void add(const Evidence& evidence);

    /// The figures since the last call. An engine whose accounts could never be read is not among them.
    std::map<ProcessKey, HeldBackFigures> take();

private:
    struct Sum {
        double seconds = 0;
        double heldBack = 0;
        double inDoubt = 0;
        std::optional<double> throttled;
        std::optional<ThreadEvidence> worst;
    };

    double tolerance_;
    std::map<ProcessKey, Sum> sums_;
};
