// Realtime.h - the raw clock that decides when enough time has passed for a new sample.
#pragma once

#include <cstdint>

#include "KrfExport.h"

namespace nRealtime {

/// Microseconds of the monotonic clock (clock_gettime, CLOCK_MONOTONIC). It never goes back, does not jump when
/// somebody sets the time, and is never 0, which callers use for "never". Any thread may call it.
KRF_EXPORT std::uint64_t gCurrentRaw_compiler();

}  // namespace nRealtime
