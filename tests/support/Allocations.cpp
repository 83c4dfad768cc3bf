#include "support/Allocations.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>

namespace {

// The blocks of the watched size. The table has a fixed size, because it must not allocate.
std::size_t g_watchedSize = 0;
std::array<void*, 4096> g_blocks;
std::size_t g_blockCount = 0;

int g_untilFailure = 0;  // counts down to the allocation that fails; 0: none will fail
int g_pauses = 0;

void remember(void* address) {
    if (g_blockCount == g_blocks.size()) std::abort();
    g_blocks[g_blockCount++] = address;
}

void forget(void* address) {
    void** const end = g_blocks.data() + g_blockCount;
    void** const block = std::find(g_blocks.data(), end, address);
    if (block != end) *block = g_blocks[--g_blockCount];
}

template <class Real>
void* allocate(Real real, std::size_t size) {
    if (g_pauses == 0 && g_untilFailure > 0 && --g_untilFailure == 0) throw std::bad_alloc();
    void* const address = real(size);
    if (g_pauses == 0 && size == g_watchedSize) remember(address);
    return address;
}

}  // namespace

LiveBlocks::LiveBlocks(std::size_t size) {
    g_watchedSize = size;
    g_blockCount = 0;
}
LiveBlocks::~LiveBlocks() { g_watchedSize = g_blockCount = 0; }
std::size_t LiveBlocks::count() const { return g_blockCount; }

FailingAllocation::FailingAllocation(int nth) { g_untilFailure = nth; }
FailingAllocation::~FailingAllocation() { g_untilFailure = 0; }
bool FailingAllocation::happened() const { return g_untilFailure == 0; }

AllocationsAlwaysWork::AllocationsAlwaysWork() { ++g_pauses; }
AllocationsAlwaysWork::~AllocationsAlwaysWork() { --g_pauses; }

// size_t is unsigned int on 32 bits and unsigned long on 64, so each build uses one of every pair. They are visible,
// because the linker requires that where a shared library uses the wrapped function too.
#pragma GCC visibility push(default)
extern "C" {

void* __real__Znwj(std::size_t size);
void* __real__Znwm(std::size_t size);
void __real__ZdlPv(void* address);
void __real__ZdlPvj(void* address, std::size_t size);
void __real__ZdlPvm(void* address, std::size_t size);

#ifdef __i386__
void* __wrap__Znwj(std::size_t size) { return allocate(__real__Znwj, size); }
void __wrap__ZdlPvj(void* address, std::size_t size) {
    forget(address);
    __real__ZdlPvj(address, size);
}
#else
void* __wrap__Znwm(std::size_t size) { return allocate(__real__Znwm, size); }
void __wrap__ZdlPvm(void* address, std::size_t size) {
    forget(address);
    __real__ZdlPvm(address, size);
}
#endif
void __wrap__ZdlPv(void* address) {
    forget(address);
    __real__ZdlPv(address);
}

}  // extern "C"
#pragma GCC visibility pop
