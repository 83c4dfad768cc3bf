// Allocations.h - counts the blocks that the code under test holds, and lets its memory run out.
//
// Programs that link Allocations.cpp wrap operator new and operator delete (see krenv_proc_test in CMakeLists.txt), so
// only what is linked into the program is seen, not what happens inside shared libraries.
#pragma once

#include <cstddef>

/// Counts the blocks of exactly `size` bytes that have been allocated, and not freed, since it was made. One at a time.
class LiveBlocks {
public:
    explicit LiveBlocks(std::size_t size);
    ~LiveBlocks();
    LiveBlocks(const LiveBlocks&) = delete;
    LiveBlocks& operator=(const LiveBlocks&) = delete;

    std::size_t count() const;
};

/// The `nth` allocation from now on, counted from 1, throws std::bad_alloc; the others work.
class FailingAllocation {
public:
    explicit FailingAllocation(int nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// True when it has failed.
    bool happened() const;
};

/// While one lives, no allocation fails or is counted.
class AllocationsAlwaysWork {
public:
    AllocationsAlwaysWork();
    ~AllocationsAlwaysWork();
    AllocationsAlwaysWork(const AllocationsAlwaysWork&) = delete;
    AllocationsAlwaysWork& operator=(const AllocationsAlwaysWork&) = delete;
};
