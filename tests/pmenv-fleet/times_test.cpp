// Moments as users type them.
#include <cstdint>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "times.h"

namespace {

constexpr std::int64_t kNow = 1795312345678;

std::optional<std::int64_t> millisecondsOf(const std::string& text) {
    const auto moment = parseMoment(text, Moment(std::chrono::milliseconds(kNow)));
    return moment ? std::optional<std::int64_t>(moment->time_since_epoch().count()) : std::nullopt;
}

TEST(ParseMoment, TakesFourForms) {
    const struct {
        const char* text;
        std::int64_t milliseconds;
    } rows[] = {
        {"now", kNow},
        {"-90s", kNow - 90000},
        {"-10m", kNow - 600000},
        {"-2h", kNow - 7200000},
        {"-1d", kNow - 86400000},
        {"-1.5m", kNow - 90000},
        {"0", 0},
        {"1795312345", 1795312345000},
        {"1795312345.5", 1795312345500},
        {"1795312345.6784", 1795312345678},
        {"7258118399", 7258118399000},
        {"1970-01-01T00:00:00Z", 0},
        {"2026-11-21T02:20:33Z", 1795227633000},
        {"2026-11-21t02:20:33z", 1795227633000},
        {"2026-11-21 02:20:33Z", 1795227633000},
        {"2026-11-21T02:20:33.125Z", 1795227633125},
        {"2026-11-21T04:20:33+02:00", 1795227633000},
        {"2026-11-20T22:50:33-03:30", 1795227633000},
        {"2028-02-29T00:00:00Z", 1835395200000},
        {"2199-12-31T23:59:59Z", 7258118399000},
        {"1970-01-01T01:00:00+01:00", 0},
        {"1969-12-31T23:30:00-00:30", 0},
    };
    for (const auto& row : rows) EXPECT_EQ(millisecondsOf(row.text), row.milliseconds) << row.text;
}

TEST(ParseMoment, RefusesEverythingElse) {
    for (const char* const text : {"",
                                   "-",
                                   "-m",
                                   "-10",
                                   "-10x",
                                   "--10m",
                                   "-1e3s",
                                   "-99999999999d",
                                   "10m",
                                   "+10m",
                                   "Now",
                                   "now ",
                                   " now",
                                   "1e9",
                                   "1.",
                                   ".5",
                                   "0x10",
                                   "nan",
                                   "inf",
                                   "7258118400",
                                   "253402300799",
                                   "9999-12-31T23:59:59Z",
                                   "1970-01-01T00:59:59+01:00",
                                   "-60000d",
                                   "2026-11-21",
                                   "2026-11-21T02:20:33",
                                   "2026-11-21T02:20Z",
                                   "2026-11-21T02:20:33.Z",
                                   "2026-11-21T02:20:33,5Z",
                                   "2026-11-21T02:20:33+0200",
                                   "2026-11-21T02:20:33+24:00",
                                   "2026-11-21T02:20:33+02:60",
                                   "2026-11-21T02:20:33+02:00x",
                                   "2026-11-21T02:20:33ZZ",
                                   "2026-11-21_02:20:33Z",
                                   "2026-11-31T00:00:00Z",
                                   "2027-02-29T00:00:00Z",
                                   "2026-13-01T00:00:00Z",
                                   "2026-00-01T00:00:00Z",
                                   "2026-01-01T24:00:00Z",
                                   "2026-01-01T00:60:00Z",
                                   "2026-01-01T00:00:60Z",
                                   "26-01-01T00:00:00Z",
                                   "1969-12-31T23:59:59Z"}) {
        EXPECT_EQ(millisecondsOf(text), std::nullopt) << text;
    }
}

}  // namespace
