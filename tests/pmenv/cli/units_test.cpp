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
        {1024 * 1024 - 1, "1.0 MiB"},
        {1536ULL << 20, "1.5 GiB"},
        {15ULL << 30, "15.0 GiB"},
        {UINT64_MAX, "16.0 EiB"},
    };
    for (const auto& row : rows) EXPECT_EQ(bytesText(row.bytes), row.text);
}

}  // namespace
