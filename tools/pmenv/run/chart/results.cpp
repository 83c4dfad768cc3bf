#include "chart/results.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "chart/csv.h"
#include "failure.h"
#include "units.h"

namespace {

// --- texts to numbers -----------------------------------------------------------------------------------------------

std::optional<double> parseNumber(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) return std::nullopt;
    return number;
}

// A number of exactly so many digits at the front of the text, which it is taken from.
std::optional<int> takeDigits(std::string_view& text, std::size_t digits) {
    int number = 0;
    if (text.size() < digits) return std::nullopt;
    for (const char digit : text.substr(0, digits)) {
        if (digit < '0' || digit > '9') return std::nullopt;
        number = 10 * number + (digit - '0');
    }
    text.remove_prefix(digits);
    return number;
}

bool takeOneOf(std::string_view& text, std::string_view characters) {
    if (text.empty() || characters.find(text[0]) == std::string_view::npos) return false;
    text.remove_prefix(1);
    return true;
}

// The days since 1970-01-01 in the calendar of today; a year begins in March here, so that a leap day is its last.
long daysSince1970(int year, int month, int day) {
    const int shifted = month <= 2 ? year - 1 : year;
    const int era = shifted / 400;
    const int yearOfEra = shifted - era * 400;
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097L + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

// ".123", ",123"; 0 when there is none.
std::optional<double> takeFraction(std::string_view& text) {
    if (!takeOneOf(text, ".,")) return 0;
    double fraction = 0;
    double weight = 0.1;
    bool any = false;
    for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1), weight /= 10) {
        fraction += weight * (text[0] - '0');
        any = true;
    }
    return any ? std::optional(fraction) : std::nullopt;
}

// "Z", "+01:00", "-0530" as seconds; 0 when there is none.
std::optional<int> takeZone(std::string_view& text) {
    if (text.empty()) return 0;
    if (takeOneOf(text, "Z")) return 0;
    const int sign = text[0] == '-' ? -1 : 1;
    if (!takeOneOf(text, "+-")) return std::nullopt;
    const auto hours = takeDigits(text, 2);
    takeOneOf(text, ":");
    const auto minutes = takeDigits(text, 2);
    if (!hours || !minutes) return std::nullopt;
    return sign * (*hours * 3600 + *minutes * 60);
}

std::optional<double> parseDateAndTime(std::string_view text) {
    const auto year = takeDigits(text, 4);
    const bool dash1 = takeOneOf(text, "-/");
    const auto month = takeDigits(text, 2);
    const bool dash2 = takeOneOf(text, "-/");
    const auto day = takeDigits(text, 2);
    const bool gap = takeOneOf(text, "T ");
    const auto hour = takeDigits(text, 2);
    const bool colon1 = takeOneOf(text, ":");
    const auto minute = takeDigits(text, 2);
    const bool colon2 = takeOneOf(text, ":");
    const auto second = takeDigits(text, 2);
    if (!dash1 || !dash2 || !gap || !colon1 || !colon2) return std::nullopt;
    if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
    if (*month < 1 || *month > 12 || *day < 1 || *day > 31 || *hour > 23 || *minute > 59 || *second > 60)
        return std::nullopt;
    const auto fraction = takeFraction(text);
    const auto zone = takeZone(text);
    if (!fraction || !zone || !text.empty()) return std::nullopt;
    return static_cast<double>(daysSince1970(*year, *month, *day)) * 86400 + *hour * 3600 + *minute * 60 + *second +
           *fraction - *zone;
}

// --- the formats ----------------------------------------------------------------------------------------------------

struct ResultFormat {
    std::size_t fields = 0;
    std::size_t time = 0;
    std::size_t value = 0;                 // milliseconds
    std::optional<std::size_t> succeeded;  // "false" when it did not
    std::optional<std::size_t> metric;     // a row counts when this names the duration of a request
};

constexpr const char* kDurationMetric = "http_req_duration";

std::optional<ResultFormat> formatOf(const std::vector<std::string>& header) {
    const auto find = [&header](const char* name) -> std::optional<std::size_t> {
        const auto place = std::find(header.begin(), header.end(), name);
        if (place == header.end()) return std::nullopt;
        return static_cast<std::size_t>(place - header.begin());
    };
    const auto format = [&](const char* time, const char* value) -> std::optional<ResultFormat> {
        const auto timeAt = find(time);
        const auto valueAt = find(value);
        if (!timeAt || !valueAt) return std::nullopt;
        return ResultFormat{header.size(), *timeAt, *valueAt, std::nullopt, std::nullopt};
    };
    if (auto jmeter = format("timeStamp", "elapsed")) {
        jmeter->succeeded = find("success");
        return jmeter;
    }
    if (auto k6 = format("timestamp", "metric_value"); k6 && find("metric_name")) {
        k6->succeeded = find("expected_response");
        k6->metric = find("metric_name");
        return k6;
    }
    return format("time", "value");
}

constexpr const char* kKnownHeaders =
    "the first line must name the columns: time,value (times in seconds or milliseconds since 1970 or as ISO dates, "
    "values "
    "in milliseconds); or be that of a JMeter JTL file saved as CSV with field names, or of k6's --out csv";

[[noreturn]] void refuse(const std::string& name, std::size_t line, const std::string& what) {
    throw Failure(name + ":" + std::to_string(line) + ": " + what);
}

// The rows of a file that could not be used.
struct BadRows {
    std::uint64_t count = 0;
    std::size_t line = 0;  // of the first
    std::string why;

    void add(std::size_t at, const std::string& reason) {
        if (count++ > 0) return;
        line = at;
        why = reason;
    }
};

}  // namespace

std::optional<double> parseMoment(std::string_view text) {
    const auto number = parseNumber(text);
    if (!number) return parseDateAndTime(text);
    if (*number < 0) return std::nullopt;
    constexpr double kLatestSecond = 1e11;  // in the year 5138
    double seconds = *number;
    for (int i = 0; i < 3 && seconds >= kLatestSecond; ++i) seconds /= 1000;
    return seconds;
}

// --- response times -------------------------------------------------------------------------------------------------

namespace {

constexpr double kShortest = 0.01;  // milliseconds
constexpr double kLongest = 1e8;    // a day
constexpr double kClassWidth = 1.02;

std::size_t classOf(double milliseconds) {
    static const double perClass = std::log(kClassWidth);
    const double within = std::clamp(milliseconds, kShortest, kLongest);
    return static_cast<std::size_t>(std::log(within / kShortest) / perClass);
}

}  // namespace

ResponseTimes::ResponseTimes() : classes_(classOf(kLongest) + 1) {}

void ResponseTimes::add(double milliseconds) {
    ++classes_[classOf(milliseconds)];
    ++count_;
}

double ResponseTimes::percentile(double percent) const {
    const double rank = std::max(1.0, std::ceil(percent / 100 * static_cast<double>(count_) - 1e-9));
    double seen = 0;
    std::size_t found = 0;
    while (found + 1 < classes_.size() && (seen += static_cast<double>(classes_[found])) < rank) ++found;
    return kShortest * std::pow(kClassWidth, static_cast<double>(found) + 0.5);
}

// --- results --------------------------------------------------------------------------------------------------------

struct Results::Row {
    double time;
    double milliseconds;
    bool failed;
};

Results::Results(double start, double seconds) : start_(start), seconds_(seconds) {
    constexpr double kMostColumns = 300;
    width_ = std::max(1.0, std::ceil(seconds / kMostColumns));
    columns_.resize(static_cast<std::size_t>(std::max(1.0, std::ceil(seconds / width_))));
}

void Results::add(const Row& row) {
    const double time = row.time - start_;
    if (time < 0 || time >= seconds_) {
        ++outside_;
        return;
    }
    columns_[static_cast<std::size_t>(time / width_)].add(row.milliseconds);
    ++used_;
    if (row.failed) ++failed_;
}

void Results::read(std::istream& input, const std::string& name) {
    CsvReader reader(input);
    std::vector<std::string> header;
    if (reader.next(&header) != CsvReader::Result::Row)
        refuse(name, 1, std::string("there is no header; ") + kKnownHeaders);
    const auto format = formatOf(header);
    if (!format) refuse(name, reader.line(), std::string("this is not the header of results; ") + kKnownHeaders);

    BadRows bad;
    const std::uint64_t usedBefore = used_;
    const std::uint64_t outsideBefore = outside_;
    std::vector<std::string> fields;
    CsvReader::Result result = reader.next(&fields);
    for (; result == CsvReader::Result::Row; result = reader.next(&fields)) {
        if (fields == header) continue;  // of another run that was appended
        if (fields.size() != format->fields) {
            bad.add(reader.line(),
                    "it has " + std::to_string(fields.size()) + " of " + std::to_string(format->fields) + " fields");
            continue;
        }
        if (format->metric && fields[*format->metric] != kDurationMetric) continue;
        const auto time = parseMoment(fields[format->time]);
        const auto value = parseNumber(fields[format->value]);
        if (!time) {
            bad.add(reader.line(), "its time cannot be read");
        } else if (!value || *value < 0) {
            bad.add(reader.line(), "its value is no number of milliseconds");
        } else {
            add({*time, *value, format->succeeded && fields[*format->succeeded] == "false"});
        }
    }
    if (result == CsvReader::Result::TooLong) {
        refuse(name, reader.line(),
               "this row is longer than a mebibyte: a quotation mark in it is not closed; repair the line");
    }
    const std::uint64_t outside = outside_ - outsideBefore;
    if (used_ == usedBefore && outside > 0) {
        refuse(name, 2,
               "none of its " + countText(outside, "row") +
                   " lies in the time of the recordings; are these of the same run, and were the clocks right?");
    }
    if (used_ == usedBefore && bad.count > 0) {
        refuse(name, bad.line,
               "no row can be used, and this is the first: " + bad.why + "; repair the file, or write it anew");
    }
    if (used_ == usedBefore) {
        refuse(name, 1,
               format->metric ? std::string("there is no row of the metric ") + kDurationMetric +
                                    "; draw the results of a run with HTTP requests"
                              : "there is no row below the header; draw the results of a run that has some");
    }
    if (bad.count > 0) {
        remarks_.push_back(name + ":" + std::to_string(bad.line) + ": " + countText(bad.count, "row") +
                           " could not be used; this is the first: " + bad.why);
    }
    if (outside > 0)
        remarks_.push_back(name + ": " + countText(outside, "row") + " outside the time of the recordings");
}
