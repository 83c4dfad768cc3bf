// Allocations.h - counts the heap blocks that the code under test holds, and makes its allocations fail.
//
// Programs that link Allocations.cpp wrap operator new and operator delete (see krenv_proc_test in CMakeLists.txt), so
// they see only code that is linked into the program, not what happens inside shared libraries.
#pragma once

#include <cstddef>

/// Counts the blocks of exactly `size` bytes that were allocated since its construction and not freed. Only one object
/// may exist at a time.
class LiveBlocks {
public:
    explicit LiveBlocks(std::size_t size);
    ~LiveBlocks();
    LiveBlocks(const LiveBlocks&) = delete;
    LiveBlocks& operator=(const LiveBlocks&) = delete;

    std::size_t count() const;
};

/// Makes the `nth` allocation from now on, counted from 1, throw std::bad_alloc; the others work.
class FailingAllocation {
public:
    explicit FailingAllocation(int nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// True when that allocation has failed.
    bool happened() const;
};

/// While an object of this class exists, no allocation fails or is counted.
class AllocationsAlwaysWork {
public:
    AllocationsAlwaysWork();
    ~AllocationsAlwaysWork();
    AllocationsAlwaysWork(const AllocationsAlwaysWork&) = delete;
    AllocationsAlwaysWork& operator=(const AllocationsAlwaysWork&) = delete;
};
