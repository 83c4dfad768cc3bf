// networkFiles.h - what the kernel tells about connections, as values. Text in, values out: no file, no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kernel {

/// /proc/PID/net/sockstat: TCP sockets that hold a local port. Those that are closed and wait for stragglers are of IPv4 and
/// IPv6, the others of IPv4 only.
std::optional<std::uint64_t> parseTcpSockets(std::string_view text);

/// /proc/PID/net/sockstat6: the others of IPv6, also those that are connected to an address of IPv4.
std::optional<std::uint64_t> parseTcp6Sockets(std::string_view text);

/// /proc/sys/net/ipv4/ip_local_port_range.
struct PortRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t count() const { return last - first + 1; }
};
std::optional<PortRange> parsePortRange(std::string_view text);

/// /proc/sys/net/ipv4/ip_local_reserved_ports: how many ports of the range are given to nobody who asks for any.
std::optional<std::uint64_t> parseReservedPorts(std::string_view text, const PortRange& range);

/// Local ports in use from one address towards one destination.
struct PortsInUse {
    std::uint64_t count = 0;
    std::uint64_t lowest = 0;
    std::uint64_t highest = 0;
};

/// /proc/PID/net/tcp or tcp6: the local ports of the range that are in use from one address towards one destination, where
/// these are most; a count of 0 where there are none. A port can be in use from each address towards each destination.
std::optional<PortsInUse> parseMostPortsOfOneDestination(std::string_view text, const PortRange& range);

/// /proc/net/softnet_stat: packets that came in and were dropped because nobody had time for them.
std::optional<std::uint64_t> parseDroppedPackets(std::string_view text);

/// /proc/PID/net/snmp.
struct TcpSegments {
    std::uint64_t sent = 0;
    std::uint64_t sentAgain = 0;
};
std::optional<TcpSegments> parseTcpSegments(std::string_view text);

}  // namespace kernel
