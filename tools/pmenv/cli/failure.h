// failure.h - the exception that ends a command early, and the exit codes.
#pragma once

#include <stdexcept>
#include <string>

constexpr int kExitDone = 0;
constexpr int kExitWrong = 1;  // the thing asked for is absent or wrong; diff: it differs
constexpr int kExitUsage = 2;
constexpr int kExitSpoiled = 3;     // judge, fleet: a load generator spoiled the run
constexpr int kExitCannotTell = 4;  // judge, fleet, diff: what decides could not be seen

/// Thrown by a command that cannot go on. The text says what, where and what to do; main prints it behind "pmenv: ".
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, int exitCode = kExitWrong)
        : std::runtime_error(text), exitCode_(exitCode) {}
    int exitCode() const { return exitCode_; }

private:
    int exitCode_;
};
