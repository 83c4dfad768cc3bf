// exposition.h - the text form in which metrics collectors take figures in.
#pragma once

#include <optional>
#include <string>

/// A label of a series: NAME="VALUE". Names of processes can hold any bytes; a label holds the text that a recording has for
/// them, so that different names stay different.
std::string label(const char* name, const std::string& value);

/// Labels with one more behind them, or with none.
std::string joinedLabels(const std::string& labels, const std::string& more);

/// What stands before the series of a metric.
std::string metricHeading(const std::string& name, const char* type, const std::string& help);

/// The same exposition in the newer form of the text, which has the name of a counter without _total in its heading.
std::string asOpenMetrics(const std::string& exposition);

/// A metric as it is now, without a time. What is not known does not appear, and a metric without series neither.
///
/// The heading of a counter bears the name of its samples, which ends in _total, as in the older form of the text: the
/// collectors of such files and the checkers of the names read that form. The newer form has it without _total there.
class MetricNow {
public:
    MetricNow(const std::string& name, const char* type, const std::string& help)
        : name_(name), heading_(metricHeading(name, type, help)) {}

    MetricNow& add(const std::string& labels, std::optional<double> value);

    std::string text() const { return series_.empty() ? "" : heading_ + series_; }

private:
    std::string name_;
    std::string heading_;
    std::string series_;
};
