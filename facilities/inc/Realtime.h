// Realtime.h - the raw clock behind the sampling gates.
#pragma once

#include <cstdint>

#include "KrfExport.h"

namespace nRealtime {

/// Microseconds of the monotonic clock (clock_gettime, CLOCK_MONOTONIC): it never goes back, is not moved when somebody
/// sets the time, and is never 0, which callers use for "never". Any thread may call it.
KRF_EXPORT std::uint64_t gCurrentRaw_compiler();

}  // namespace nRealtime
