// Formats the measured rows for people.
#include <algorithm>
#include <cstdio>

#include "measure.h"

namespace {

using Json = nlohmann::json;

template <class... Values>
std::string format(const char* pattern, Values... values) {
    char text[96];
    std::snprintf(text, sizeof text, pattern, values...);
    return text;
}

std::string timeText(double nanoseconds) {
    const struct {
        double limit, unit;
        const char* name;
    } units[] = {{1e3, 1, "ns"}, {1e6, 1e3, "µs"}, {1e9, 1e6, "ms"}, {1e300, 1e9, "s"}};
    const auto* unit = units;
    while (nanoseconds >= unit->limit) ++unit;
    const double value = nanoseconds / unit->unit;
    return format(value < 10 ? "%.2f %s" : value < 100 ? "%.1f %s" : "%.0f %s", value, unit->name);
}

// One row's figures; 0 where the row has none.
struct Figures {
    double ours = 0;
    double fastest = 0;  // alternative
    double floor = 0;
    std::string alternatives;

    explicit Figures(const Json& row) {
        for (const Json& way : row["ways"]) take(way["kind"], way["name"], way["ns"]);
    }

private:
    void take(const std::string& kind, const std::string& name, double ns) {
        if (kind == "krenv") {
            ours = ns;
        } else if (kind == "floor") {
            floor = ns;
        } else {
            fastest = fastest == 0 ? ns : std::min(fastest, ns);
            alternatives += (alternatives.empty() ? "" : "<br>") + name + " " + timeText(ns) + " (" +
                            format("%.2f×", ns / ours) + ")";
        }
    }
};

// The goals of a row, and whether each was met.
std::string verdicts(const Json& goal, const Figures& figures) {
    std::string text;
    const auto add = [&text](const std::string& asked, bool met) {
        text += (text.empty() ? "" : "<br>") + asked + (met ? ": met" : ": **missed**");
    };
    const double timesAsFast = goal["timesAsFast"];
    const double timesFloor = goal["timesFloor"];
    const double aboveFloor = goal["aboveFloorNs"];
    if (timesAsFast > 0 && figures.fastest > 0) {
        add(format("≥ %g× as fast", timesAsFast), figures.fastest >= timesAsFast * figures.ours);
    }
    if (timesFloor > 0) add(format("≤ %g× floor", timesFloor), figures.ours <= timesFloor * figures.floor);
    if (aboveFloor > 0) add(format("≤ floor + %g ns", aboveFloor), figures.ours <= figures.floor + aboveFloor);
    return text;
}

std::string line(const Json& row) {
    const Figures figures(row);
    const std::string floor = figures.floor > 0 ? timeText(figures.floor) : "";
    const std::string toFloor = figures.floor > 0 ? format("%.2f", figures.ours / figures.floor) : "";
    return "| " + row["operation"].get<std::string>() + " | " + row["size"].get<std::string>() + " | " +
           std::to_string(row["bits"].get<int>()) + " | " + timeText(figures.ours) + " | " + figures.alternatives +
           " | " + floor + " | " + toFloor + " | " + verdicts(row["goal"], figures) + " |\n";
}

}  // namespace

std::string tableOf(const Json& rows) {
    std::string text =
        "| operation | size | bits | krenv | alternatives | floor | krenv / floor | to reach |\n"
        "|---|---|---:|---:|---|---:|---:|---|\n";
    for (const Json& row : rows) text += line(row);
    return text;
}
