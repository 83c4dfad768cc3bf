// Paths of usual lengths.
#include "pathChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    checkPaths(data, size, [](std::string_view line) { return std::string(line); });
    return 0;
}
