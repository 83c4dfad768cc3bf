// seldomRead.h - figures that are read less often than every interval, such as the memory's.
#pragma once

#include <optional>

#include "evidence/evidence.h"

/// For how long a reading holds.
class SeldomRead {
public:
    /// What is read in this interval is taken to have been so since it was read before, if that is not long ago.
    double since(const Evidence& evidence) {
        constexpr double kLongestBetween = 11;  // seconds
        const bool lasts = before_ && evidence.to - *before_ <= kLongestBetween;
        const double since = lasts ? *before_ : evidence.from;
        before_ = evidence.to;
        return since;
    }

private:
    std::optional<double> before_;
};
