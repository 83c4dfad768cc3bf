#include "kernel/networkFiles.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "kernel/numbers.h"

namespace kernel {

namespace {

// The number behind `name` in "TCP: inuse 5 orphan 0 tw 12 alloc 7 mem 1".
std::optional<std::uint64_t> valueBehind(std::string_view line, std::string_view name) {
    for (std::string_view word = takeWord(&line); !word.empty(); word = takeWord(&line)) {
        if (word == name) return number(takeWord(&line));
    }
    return std::nullopt;
}

std::optional<std::string_view> lineThatBegins(std::string_view* text, std::string_view word) {
    while (!text->empty()) {
        std::string_view line = takeLine(text);
        if (takeWord(&line) == word) return line;
    }
    return std::nullopt;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// The word of `values` that stands where `name` stands in `names`.
std::optional<std::uint64_t> valueBelow(std::string_view names, std::string_view values, std::string_view name) {
    for (std::string_view word = takeWord(&names); !word.empty(); word = takeWord(&names)) {
        const std::string_view value = takeWord(&values);
        if (word == name) return number(value);
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> parseTcpSockets(std::string_view text) {
    const auto line = lineThatBegins(&text, "TCP:");
    if (!line) return std::nullopt;
    const auto used = valueBehind(*line, "inuse"), closed = valueBehind(*line, "tw");
    if (!used || !closed) return std::nullopt;
    return *used + *closed;
}

std::optional<std::uint64_t> parseTcp6Sockets(std::string_view text) {
    const auto line = lineThatBegins(&text, "TCP6:");
    return line ? valueBehind(*line, "inuse") : std::nullopt;
}

// "32768	60999"
std::optional<PortRange> parsePortRange(std::string_view text) {
    std::string_view line = takeLine(&text);
    const auto first = number(takeWord(&line)), last = number(takeWord(&line));
    if (!first || !last || *last < *first || *last > 65535) return std::nullopt;
    return PortRange{*first, *last};
}

// "8080,9148-9150": in order, and none twice
std::optional<std::uint64_t> parseReservedPorts(std::string_view text, const PortRange& range) {
    std::string_view line = takeLine(&text);
    std::uint64_t reserved = 0;
    while (!line.empty()) {
        std::string_view ports = takeUntil(&line, ',');
        const auto first = number(takeUntil(&ports, '-'));
        const auto last = ports.empty() ? first : number(ports);
        if (!first || !last || *last < *first) return std::nullopt;
        const std::uint64_t from = std::max(*first, range.first), to = std::min(*last, range.last);
        if (from <= to) reserved += to - from + 1;
    }
    return reserved;
}

// "   0: 0100007F:8C1E 0100007F:1F90 01 ...": the line's number, local and remote address, in hexadecimal digits.
// A socket that listens has no destination.
std::optional<PortsInUse> parseMostPortsOfOneDestination(std::string_view text, const PortRange& range) {
    std::string_view title = takeLine(&text);
    if (takeWord(&title) != "sl") return std::nullopt;
    std::map<std::pair<std::string_view, std::string_view>, PortsInUse> ports;
    PortsInUse most;
    while (!text.empty()) {
        std::string_view line = takeLine(&text);
        takeWord(&line);
        std::string_view local = takeWord(&line);
        const std::string_view remote = takeWord(&line);
        const std::string_view address = takeUntil(&local, ':');
        const auto port = number(local, 16);
        if (!port || *port < range.first || *port > range.last || endsWith(remote, ":0000")) continue;
        PortsInUse& use = ports.try_emplace({address, remote}, PortsInUse{0, *port, *port}).first->second;
        use = {use.count + 1, std::min(use.lowest, *port), std::max(use.highest, *port)};
        if (use.count > most.count) most = use;
    }
    return most;
}

// "0000272d 00000000 00000000 ...", a line for each processor; the second number counts what was dropped.
std::optional<std::uint64_t> parseDroppedPackets(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::uint64_t sum = 0;
    while (!text.empty()) {
        std::string_view line = takeLine(&text);
        takeWord(&line);
        const auto dropped = number(takeWord(&line), 16);
        if (!dropped) return std::nullopt;
        sum += *dropped;
    }
    return sum;
}

std::optional<TcpSegments> parseTcpSegments(std::string_view text) {
    const auto names = lineThatBegins(&text, "Tcp:"), values = lineThatBegins(&text, "Tcp:");
    if (!names || !values) return std::nullopt;
    const auto sent = valueBelow(*names, *values, "OutSegs"), sentAgain = valueBelow(*names, *values, "RetransSegs");
    if (!sent || !sentAgain) return std::nullopt;
    return TcpSegments{*sent, *sentAgain};
}

}  // namespace kernel
