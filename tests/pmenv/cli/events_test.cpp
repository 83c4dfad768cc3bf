// events: what a command waits for.
#include <chrono>
#include <csignal>

#include <gtest/gtest.h>
#include <unistd.h>

#include "events.h"
#include "support/OpenDescriptors.h"

namespace {

// A pipe as standard input, for the length of a scope.
class TypedInput {
public:
    TypedInput() : before_(dup(STDIN_FILENO)) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        writer_ = ends[1];
    }
    ~TypedInput() {
        end();
        dup2(before_, STDIN_FILENO);
        close(before_);
    }
    TypedInput(const TypedInput&) = delete;
    TypedInput& operator=(const TypedInput&) = delete;

    void type(char key) const { EXPECT_EQ(write(writer_, &key, 1), 1); }
    void end() {
        if (writer_ >= 0) close(writer_);
        writer_ = -1;
    }

private:
    int before_;
    int writer_ = -1;
};

bool isBlocked(int signal) {
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    return sigismember(&now, signal) == 1;
}

double secondsOf(Events& events, double seconds, Events::Kind expected) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(events.wait(seconds).kind, expected);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

constexpr double kLong = 600;  // never waited for, unless something is broken

TEST(Events, TheTimePasses) {
    Events events({SIGUSR1}, false);
    EXPECT_GE(secondsOf(events, 0.02, Events::Kind::Timeout), 0.02);
    EXPECT_LT(secondsOf(events, 0, Events::Kind::Timeout), kLong);
    EXPECT_LT(secondsOf(events, -1, Events::Kind::Timeout), kLong);
}

TEST(Events, ASignalIsReportedInsteadOfDelivered) {
    Events events({SIGUSR1, SIGUSR2}, false);
    for (const int signal : {SIGUSR2, SIGUSR1}) {
        raise(signal);
        const Events::Event event = events.wait(kLong);
        EXPECT_EQ(event.kind, Events::Kind::Signal);
        EXPECT_EQ(event.value, signal);
    }
}

TEST(Events, OtherSignalsAreLeftAlone) {
    ASSERT_FALSE(isBlocked(SIGUSR1));
    {
        const Events events({SIGUSR1}, false);
        EXPECT_TRUE(isBlocked(SIGUSR1));
        EXPECT_FALSE(isBlocked(SIGUSR2));
    }
    EXPECT_FALSE(isBlocked(SIGUSR1));
}

TEST(Events, NoDescriptorStaysOpen) {
    const OpenDescriptors descriptors;
    { const Events events({SIGUSR1}, false); }
    EXPECT_EQ(descriptors.addedTargets(), std::vector<std::string>{});
}

TEST(Events, KeysAreReportedOneByOne) {
    TypedInput input;
    Events events({SIGUSR1}, true);
    input.type('q');
    input.type('\xff');
    const Events::Event first = events.wait(kLong);
    EXPECT_EQ(first.kind, Events::Kind::Key);
    EXPECT_EQ(first.value, 'q');
    EXPECT_EQ(events.wait(kLong).value, 0xff);
    raise(SIGUSR1);
    EXPECT_EQ(events.wait(kLong).kind, Events::Kind::Signal);
}

TEST(Events, KeysAreNotReadUnlessWanted) {
    TypedInput input;
    Events events({}, false);
    input.type('q');
    EXPECT_GE(secondsOf(events, 0.02, Events::Kind::Timeout), 0.02);
    char left = 0;
    EXPECT_EQ(read(STDIN_FILENO, &left, 1), 1);
}

TEST(Events, TheEndOfTheInputIsNoKey) {
    TypedInput input;
    Events events({}, true);
    input.end();
    EXPECT_GE(secondsOf(events, 0.02, Events::Kind::Timeout), 0.02);
    EXPECT_GE(secondsOf(events, 0.02, Events::Kind::Timeout), 0.02);
}

// Otherwise waiting would take a processor.
TEST(Events, BehindTheEndOfTheInputNothingIsReadAnyMore) {
    TypedInput input;
    Events events({}, true);
    input.end();
    EXPECT_EQ(events.wait(0.02).kind, Events::Kind::Timeout);
    const TypedInput another;
    another.type('q');
    EXPECT_EQ(events.wait(0.02).kind, Events::Kind::Timeout);
}

}  // namespace
