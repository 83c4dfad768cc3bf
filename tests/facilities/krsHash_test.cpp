// The hash of the settings tables' keys: drawn anew for each process, and as good as a table needs it.
#include <bitset>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "krsTexts.h"
#include "support/InChild.h"

namespace {

std::string hashInAProcessOfItsOwn() {
    return inChild([] { return std::to_string(krs::hashOf("KEY")); });
}

std::uint32_t hashWith(krs::HashKey key, const std::string& text) { return krs::KeyHash(key)(text); }

}  // namespace

// With a fixed key somebody could write a file whose keys collide. Three are equal by chance once in 2^64 runs.
TEST(KeyHash, IsKeyedAnewInEachProcess) {
    const std::set<std::string> hashes = {hashInAProcessOfItsOwn(), hashInAProcessOfItsOwn(), hashInAProcessOfItsOwn()};
    EXPECT_GT(hashes.size(), 1U);
}

TEST(KeyHash, BothHalvesOfTheKeyCount) {
    EXPECT_NE(hashWith({1, 2}, "KEY"), hashWith({3, 2}, "KEY"));
    EXPECT_NE(hashWith({1, 2}, "KEY"), hashWith({1, 3}, "KEY"));
}

// Each bit of a text changes each bit of the hash about every other time, wherever it stands.
TEST(KeyHash, EveryBitOfATextChangesHalfOfTheHash) {
    for (const std::size_t length : {1U, 3U, 4U, 5U, 8U, 15U, 64U}) {
        for (std::size_t bit = 0; bit < length * 8; ++bit) {
            int changed = 0;
            constexpr int kTexts = 64;
            for (int i = 0; i < kTexts; ++i) {
                std::string text(length, static_cast<char>('A' + i));
                const std::uint32_t before = hashWith({0x12345678, 0x9abcdef0}, text);
                text[bit / 8] = static_cast<char>(text[bit / 8] ^ (1 << bit % 8));
                changed += static_cast<int>(std::bitset<32>(before ^ hashWith({0x12345678, 0x9abcdef0}, text)).count());
            }
            EXPECT_NEAR(16.0, static_cast<double>(changed) / kTexts, 2.0) << "bit " << bit << " of " << length * 8;
        }
    }
}

// The slots of a table are the hash's lowest bits.
TEST(KeyHash, NumberedKeysFillTheSlotsEvenly) {
    constexpr std::size_t kSlots = 256;
    std::vector<int> used(kSlots);
    for (int i = 0; i < 65'536; ++i) ++used[hashWith({7, 11}, "section.KEY" + std::to_string(i)) % kSlots];
    for (const int count : used) EXPECT_NEAR(256, count, 96);  // six standard deviations
}

TEST(KeyHash, TextsThatDifferInTheirLengthAloneDiffer) {
    std::set<std::uint32_t> hashes;
    for (std::size_t length = 0; length < 64; ++length) hashes.insert(hashWith({1, 2}, std::string(length, '\0')));
    EXPECT_EQ(64U, hashes.size());
}
