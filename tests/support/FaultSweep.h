// FaultSweep.h - runs an operation again and again, each time with another call of the C library failing.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MachineStats.h"
#include "krenv.h"
#include "support/Faults.h"
#include "support/TempDir.h"

/// What an operation answered, as text; the directory of the test's files is written as "@".
class Answer {
public:
    Answer& operator<<(const char* text);
    Answer& operator<<(const std::string& text) { return *this << text.c_str(); }
    Answer& operator<<(bool value) { return *this << (value ? "true" : "false"); }
    Answer& operator<<(int value);
    Answer& operator<<(long double value);
    Answer& operator<<(double value) { return *this << static_cast<long double>(value); }
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

/// What an operation works on: a process of its own, whose working directory holds
///     bin/pressmark.ini bin/file.txt docs/ home/ tree/ and proc/, which is seen as /proc
class Host {
public:
    KREnvContainerClass env;
    char out[4096] = "old";
    int handle = 0;

    /// Makes what it returns, undisturbed, when it is first asked for.
    MachineStats& collector();
    CPUUsage& sampler();
    KREnvMachineStats stats{};

    void loadSettings();

private:
    std::unique_ptr<MachineStats> collector_;
    std::unique_ptr<CPUUsage> sampler_;
};

/// What `work` returns in a process of its own that sees the host.
std::string inHost(const std::function<std::string()>& work);

/// What an operation answers when all is well; in the lists below.
extern const char* const kSame;

/// An operation of the library, with what it may answer when something fails.
struct Operation {
    std::vector<std::string> shows;  ///< the exported symbols that it exercises
    std::function<void(Host&, Answer&)> run;
    /// What it may answer when a function fails, by "function manner" or "function": kSame or shell patterns. Where
    /// nothing is said it answers the same, or throws std::bad_alloc where memory runs out ("new").
    std::map<std::string, std::vector<std::string>> onFault = {};
    /// Makes ready what it needs; the result buffer that is to be watched, holding an older text, or null.
    std::function<const char*(Host&)> prepare = {};
    /// What it may answer the next time, when nothing fails.
    std::vector<std::string> afterwards = {kSame};
    /// How many descriptors it leaves open at most.
    std::size_t leavesOpen = 0;
};

/// What a sweep has done.
struct SweepResult {
    int injected = 0;                   ///< runs in which a call failed
    std::vector<std::string> problems;  ///< what should not have happened
};

/// Makes every call of every function that the operation uses fail, once and from then on.
SweepResult sweep(const Operation& operation);

/// The same in a host that wants no log, where each function fails from its first call on.
SweepResult sweepWithoutLog(const Operation& operation);
