// krenvState.h - the process-wide state of the library. Not exported and not installed; tests built from the library's
// objects look at it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "RWMutexLock.h"

/// One variable of the run-time table.
struct VolatileEnvEntry {
    char name[256];
    char value[256];
};
static_assert(sizeof(VolatileEnvEntry) == 512, "an entry is two fields of 256 characters");

constexpr std::size_t kVolatileEnvCapacity = 1024;

/// The run-time table: the entries in use, in the order in which their names were first set. Unsynchronised.
extern VolatileEnvEntry g_volatileEnvTable[kVolatileEnvCapacity];
extern std::uint32_t g_uTableSize;

/// The table of pressmark.ini; 0 until KREInit has created one. Unsynchronised.
extern int IniTable;

/// Held for the whole of a KRPFindfile or KRPFindfileNoKREnv search.
extern RWMutexLock gIniFileMutex;
