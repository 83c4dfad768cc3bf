// networkFiles.h - what the kernel tells about connections, as values. Text in, values out: no file, no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kernel {

/// /proc/PID/net/sockstat: TCP sockets that hold a local port, closed ones that wait for stragglers included.
std::optional<std::uint64_t> parseTcpSockets(std::string_view text);

/// /proc/sys/net/ipv4/ip_local_port_range.
struct PortRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t count() const { return last - first + 1; }
};
std::optional<PortRange> parsePortRange(std::string_view text);

/// /proc/PID/net/tcp or tcp6: how many local ports of the range are in use towards the one destination that has most. A
/// port can be in use towards each destination.
std::optional<std::uint64_t> parseMostPortsOfOneDestination(std::string_view text, const PortRange& range);

/// /proc/net/softnet_stat: packets that came in and were dropped because nobody had time for them.
std::optional<std::uint64_t> parseDroppedPackets(std::string_view text);

/// /proc/PID/net/snmp.
struct TcpSegments {
    std::uint64_t sent = 0;
    std::uint64_t sentAgain = 0;
};
std::optional<TcpSegments> parseTcpSegments(std::string_view text);

}  // namespace kernel
