// Paths that pass the limits of lengths.
#include "pathChecks.h"

namespace {

// "@N" at the front of a text repeats the rest of it, because long paths would otherwise need long inputs.
std::string expanded(std::string_view text) {
    std::size_t times = 1;
    if (text.size() > 2 && text[0] == '@') {
        times = static_cast<unsigned char>(text[1]) * 20U;
        text.remove_prefix(2);
    }
    std::string all;
    for (std::size_t i = 0; i < times && all.size() < 3 * kLongestPath; ++i) all += text;
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    checkPaths(data, size, expanded);
    return 0;
}
