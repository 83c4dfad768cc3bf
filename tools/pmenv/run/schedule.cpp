#include "schedule.h"

#include <algorithm>
#include <cmath>

double untilNextSample(double clock, double interval, std::optional<double> left) {
    double pause = interval - std::fmod(clock, interval);
    if (pause < interval / 2) pause += interval;
    if (left && *left < pause + interval / 2) pause = std::max(*left, 0.0);
    return pause;
}
