// exposition.h - the text form in which metrics collectors take figures in.
#pragma once

#include <string>

/// A label of a series: NAME="VALUE". Names of processes can hold any bytes; a label holds the text that a recording has for
/// them, so that different names stay different.
std::string label(const char* name, const std::string& value);

/// What stands before the series of a metric.
std::string metricHeading(const std::string& name, const char* type, const std::string& help);
