// Numbers as people read them.
#include <cstdint>
#include <optional>

#include <gtest/gtest.h>

#include "units.h"

namespace {

TEST(Units, BytesForPeople) {
    const struct {
        std::optional<std::uint64_t> bytes;
        const char* text;
    } rows[] = {
        {std::nullopt, "-"},
        {0, "0 B"},
        {1023, "1023 B"},
        {1024, "1.0 KiB"},
        {1048524, "1023.9 KiB"},  // 1023.949
        {1048525, "1.0 MiB"},     // 1023.950 KiB would be written as 1024.0
        {1024 * 1024 - 1, "1.0 MiB"},
        {1536ULL << 20, "1.5 GiB"},
        {15ULL << 30, "15.0 GiB"},
        {UINT64_MAX, "16.0 EiB"},
    };
    for (const auto& row : rows) EXPECT_EQ(bytesText(row.bytes), row.text);
}

TEST(Units, PercentagesAndSecondsForPeople) {
    EXPECT_EQ(percentText(std::nullopt), "-");
    EXPECT_EQ(percentText(0), "0.0 %");
    EXPECT_EQ(percentText(12.345), "12.3 %");
    EXPECT_EQ(percentText(99.96), "100.0 %");
    const struct {
        double seconds;
        const char* text;
    } rows[] = {{12, "12 s"},  {1.5, "1.5 s"},  {0, "0 s"},      {0.04, "0 s"},  {0.06, "0.1 s"},
                {0.96, "1 s"}, {0.94, "0.9 s"}, {11.97, "12 s"}, {600, "600 s"}, {0.25, "0.2 s"}};
    for (const auto& row : rows) EXPECT_EQ(secondsText(row.seconds), row.text);
}

}  // namespace
