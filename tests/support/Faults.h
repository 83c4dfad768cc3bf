// Faults.h - makes calls of the C library and of operator new fail: one call, or all from one call on.
//
// Programs that link Faults.cpp wrap the C library's functions (fault_functions in CMakeLists.txt) and get an operator
// new of their own, which also serves the C++ library. They never run a command: `system` only returns, and `popen`
// reads the file that FaultBorder::output names.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// A way in which a function fails.
struct Fault {
    const char* function;  ///< as programs call it: "stat"; operator new is "new"
    const char* manner;    ///< the error's name, or another way to fail: "short"
    int error;             ///< errno
    bool lasts;            ///< whether it may fail forever; false where the caller repeats an interrupted call
};

const std::vector<Fault>& allFaults();

/// While it exists, the `nth` call (from 1) of the fault's function fails, and with `lasting` all later calls too.
class Injection {
public:
    Injection(const Fault& fault, int nth, bool lasting);
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;

    bool reached() const;
};

/// While it exists, calls are counted and heap blocks watched, because they are those of the code under test.
class UnderTest {
public:
    UnderTest();
    ~UnderTest();
    UnderTest(const UnderTest&) = delete;
    UnderTest& operator=(const UnderTest&) = delete;

    /// The number of calls of each function so far, in all scopes of this kind.
    static const std::map<std::string, int>& calls();
    /// The number of blocks that were allocated in scopes of this kind and not freed.
    static std::size_t liveBlocks();
};

/// While it exists inside such a scope, everything works and nothing is counted, because the calls are the test's own.
class Undisturbed {
public:
    Undisturbed();
    ~Undisturbed();
    Undisturbed(const Undisturbed&) = delete;
    Undisturbed& operator=(const Undisturbed&) = delete;
};

/// The replacements for the outside world.
struct FaultBorder {
    std::string proc;                           ///< the directory that replaces /proc
    std::map<std::string, std::string> output;  ///< the file with the output of each shell command
    std::vector<std::string> commands;          ///< the commands that `system` was given; it runs none
    static FaultBorder& instance();
};

/// Closes the directory streams that the code under test has left open. Returns how many there were.
std::size_t closeDirectoriesLeftOpen();
