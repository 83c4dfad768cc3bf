#pragma once

#include <cstdint>

namespace nRealtime {

std::uint64_t gCurrentRaw_compiler();

}
