// Faults.h - makes calls of the C library and of operator new fail, one at a time or from one on.
//
// Programs that link Faults.cpp wrap the C library's functions (fault_functions in CMakeLists.txt) and get an operator
// new of their own, which also serves the C++ library. No command is ever run in them: `system` only answers, and
// `popen` reads what FaultBorder::commandOutput names.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// A way in which a function fails.
struct Fault {
    const char* function;  ///< as programs call it: "stat"; operator new is "new"
    const char* manner;    ///< the error's name, or what else goes wrong: "short"
    int error;             ///< errno
    bool lasts;            ///< may go on for ever; a call that a signal has interrupted is made again
};

const std::vector<Fault>& allFaults();

/// While it lives, the `nth` call (from 1) of the fault's function fails, and with `lasting` all those behind it.
class Injection {
public:
    Injection(const Fault& fault, int nth, bool lasting);
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;

    bool reached() const;
};

/// While it lives, calls are counted and blocks are watched: they are those of the code under test.
class UnderTest {
public:
    UnderTest();
    ~UnderTest();
    UnderTest(const UnderTest&) = delete;
    UnderTest& operator=(const UnderTest&) = delete;

    /// How often each function has been called so far, in all scopes of this kind.
    static const std::map<std::string, int>& calls();
    /// How many blocks that were allocated in scopes of this kind have not been freed.
    static std::size_t liveBlocks();
};

/// While it lives, inside such a scope, everything works and nothing is counted: it is the test's own.
class Undisturbed {
public:
    Undisturbed();
    ~Undisturbed();
    Undisturbed(const Undisturbed&) = delete;
    Undisturbed& operator=(const Undisturbed&) = delete;
};

/// What stands in for the outside world.
struct FaultBorder {
    std::string proc;                           ///< the directory that is seen as /proc
    std::map<std::string, std::string> output;  ///< the file with the output of each shell command
    std::vector<std::string> commands;          ///< what `system` was asked to run, and did not
    static FaultBorder& instance();
};

/// Closes the directory streams that the code under test has left open; how many there were.
std::size_t closeDirectoriesLeftOpen();
