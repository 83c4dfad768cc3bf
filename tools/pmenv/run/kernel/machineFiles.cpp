#include "kernel/machineFiles.h"

#include <array>
#include <limits>

#include "kernel/numbers.h"

namespace kernel {

namespace {

// "MemAvailable:   24492268 kB"
std::optional<std::uint64_t> kilobytes(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        std::string_view line = takeLine(&text);
        if (takeWord(&line) != name) continue;
        const auto value = number(takeWord(&line));
        if (!value || takeWord(&line) != "kB" || *value > std::numeric_limits<std::uint64_t>::max() / 1024) break;
        return *value * 1024;
    }
    return std::nullopt;
}

}  // namespace

// "cpu  4705 150 1120 16250 520 0 175 17 0 0": user nice system idle iowait irq softirq steal, and the guests' time,
// which is in user and nice as well. Kernels before 2.6.11 end before the stolen time.
std::optional<MachineTicks> parseMachineTicks(std::string_view text) {
    std::string_view line = takeLine(&text);
    if (takeWord(&line) != "cpu") return std::nullopt;
    std::array<std::uint64_t, 8> ticks{};
    std::size_t count = 0;
    for (; count < ticks.size(); ++count) {
        const std::string_view word = takeWord(&line);
        if (word.empty()) break;
        const auto value = number(word);
        if (!value) return std::nullopt;
        ticks[count] = *value;
    }
    if (count < 4) return std::nullopt;
    MachineTicks machine;
    machine.busy = ticks[0] + ticks[1] + ticks[2] + ticks[5] + ticks[6];
    machine.idle = ticks[3] + ticks[4];
    if (count == ticks.size()) machine.stolen = ticks[7];
    return machine;
}

MemoryBytes parseMemInfo(std::string_view text) {
    const auto swap = kilobytes(text, "SwapTotal:"), unused = kilobytes(text, "SwapFree:");
    MemoryBytes memory;
    memory.total = kilobytes(text, "MemTotal:");
    memory.available = kilobytes(text, "MemAvailable:");
    if (swap && unused && *unused <= *swap) memory.swapUsed = *swap - *unused;
    return memory;
}

// "some avg10=0.00 avg60=0.00 avg300=0.00 total=12345"
std::optional<std::uint64_t> parsePressure(std::string_view text) {
    constexpr std::string_view kTotal = "total=";
    std::string_view line = takeLine(&text);
    if (takeWord(&line) != "some") return std::nullopt;
    for (std::string_view word = takeWord(&line); !word.empty(); word = takeWord(&line)) {
        if (word.substr(0, kTotal.size()) == kTotal) return number(word.substr(kTotal.size()));
    }
    return std::nullopt;
}

}  // namespace kernel
