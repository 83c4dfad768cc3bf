// keys: what a terminal sends, as keys.
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keys.h"

using testing::ElementsAre;

namespace {

std::vector<Key> keysOf(const std::string& bytes) {
    KeyReader reader;
    std::vector<Key> keys;
    for (const char byte : bytes) {
        if (const auto key = reader.add(static_cast<unsigned char>(byte))) keys.push_back(*key);
    }
    return keys;
}

TEST(Keys, LettersAreKeysAtOnce) {
    EXPECT_THAT(keysOf("qQkjb gGx"), ElementsAre(Key::Quit, Key::Quit, Key::Up, Key::Down, Key::PageUp, Key::PageDown,
                                                 Key::Top, Key::Bottom, Key::Other));
}

TEST(Keys, ArrowKeysInEitherMode) {
    EXPECT_THAT(keysOf("\x1b[A\x1b[B\x1bOA\x1bOB"), ElementsAre(Key::Up, Key::Down, Key::Up, Key::Down));
}

TEST(Keys, PagesAndEnds) {
    EXPECT_THAT(keysOf("\x1b[5~\x1b[6~"), ElementsAre(Key::PageUp, Key::PageDown));
    EXPECT_THAT(keysOf("\x1b[H\x1bOH\x1b[1~\x1b[7~"), ElementsAre(Key::Top, Key::Top, Key::Top, Key::Top));
    EXPECT_THAT(keysOf("\x1b[F\x1bOF\x1b[4~\x1b[8~"), ElementsAre(Key::Bottom, Key::Bottom, Key::Bottom, Key::Bottom));
}

TEST(Keys, AnUnknownSequenceIsOneKey) {
    EXPECT_THAT(keysOf("\x1b[15~q"), ElementsAre(Key::Other, Key::Quit)) << "F5";
    EXPECT_THAT(keysOf("\x1b[1;5Aq"), ElementsAre(Key::Other, Key::Quit)) << "Ctrl and an arrow";
}

TEST(Keys, EscapeAloneDoesNotSwallowTheNextKey) {
    EXPECT_THAT(keysOf("\x1bq"), ElementsAre(Key::Quit));
    EXPECT_THAT(keysOf("\x1b\x1b[A"), ElementsAre(Key::Up));
    EXPECT_THAT(keysOf("\x1bx[Gq"), ElementsAre(Key::Other, Key::Other, Key::Bottom, Key::Quit));
    EXPECT_THAT(keysOf("\x1b[@q"), ElementsAre(Key::Other, Key::Quit));
    EXPECT_THAT(keysOf("\x1b[;;;;;;q"), ElementsAre(Key::Other, Key::Quit)) << "not waited for without end";
}

}  // namespace
