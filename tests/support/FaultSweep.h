// FaultSweep.h - runs an operation repeatedly, each time with another call of the C library failing.
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

/// The results of an operation, as text; the directory of the test's files is written as "@".
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

/// The surroundings of an operation: a process of its own, whose working directory holds
///     bin/pressmark.ini bin/file.txt docs/ home/ tree/ and proc/, which replaces /proc
class Host {
public:
    KREnvContainerClass env;
    char out[4096] = "old";
    int handle = 0;

    /// Each creates its result at the first call; no fault is injected there.
    MachineStats& collector();
    CPUUsage& sampler();
    KREnvMachineStats stats{};

    void loadSettings();

private:
    std::unique_ptr<MachineStats> collector_;
    std::unique_ptr<CPUUsage> sampler_;
};

/// Runs `work` in a process of its own in these surroundings and returns its result.
std::string inHost(const std::function<std::string()>& work);

/// In the lists below: the answer that the operation gives without a fault.
extern const char* const kSame;

/// An operation of the library, with the answers that it may give when something fails.
struct Operation {
    std::vector<std::string> shows;  ///< the exported symbols that it exercises
    std::function<void(Host&, Answer&)> run;
    /// The answers that are allowed when a function fails, by "function manner" or "function": kSame or shell patterns.
    /// Without an entry the answer must be the same, or std::bad_alloc where memory runs out ("new").
    std::map<std::string, std::vector<std::string>> onFault = {};
    /// Prepares the run. Returns the result buffer to watch, which holds an older text, or null.
    std::function<const char*(Host&)> prepare = {};
    /// The answers that are allowed at the next call, when nothing fails.
    std::vector<std::string> afterwards = {kSame};
    /// The greatest number of descriptors that it may leave open.
    std::size_t leavesOpen = 0;
};

/// The result of a sweep.
struct SweepResult {
    int injected = 0;                   ///< runs in which a call failed
    std::vector<std::string> problems;  ///< answers and effects that are not allowed
};

/// Makes every call of every function that the operation uses fail, once and from then on.
SweepResult sweep(const Operation& operation);

/// The same in a host without a log, where each function fails from its first call on.
SweepResult sweepWithoutLog(const Operation& operation);
