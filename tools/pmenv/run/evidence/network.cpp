#include "evidence/network.h"

#include <algorithm>

#include "kernel/files.h"
#include "kernel/networkFiles.h"

namespace {

constexpr double kSuspicious = 0.5;       // of all ports
constexpr double kPauseForCost = 100;     // times what a count took; 28,000 connections take 30 ms
constexpr std::size_t kMost = 64u << 20;  // bytes of a list of connections

std::optional<std::uint64_t> mostPorts(const std::string& path, const kernel::PortRange& range) {
    const auto text = kernel::readFile(path, kMost);
    return text ? kernel::parseMostPortsOfOneDestination(*text, range) : std::nullopt;
}

}  // namespace

Network::Network() : own_(kernel::linkTarget("/proc/self/ns/net")) {}

void Network::refresh() {
    for (auto& [name, space] : spaces_) space.fresh = false;
}

std::optional<double> Network::portShare(int pid) {
    const std::string name = kernel::linkTarget("/proc/" + std::to_string(pid) + "/ns/net");
    if (name.empty() || name != own_) return std::nullopt;
    Namespace& space = spaces_[name];
    if (!space.fresh) space.share = read(pid, space);
    space.fresh = true;
    return space.share;
}

// A port can be in use towards each destination once, so the sum of all sockets is only where the suspicion begins.
std::optional<double> Network::read(int pid, Namespace& space) const {
    const std::string directory = "/proc/" + std::to_string(pid) + "/net/";
    const auto rangeText = kernel::readFile("/proc/sys/net/ipv4/ip_local_port_range");
    const auto range = rangeText ? kernel::parsePortRange(*rangeText) : std::nullopt;
    const auto socketsText = kernel::readFile(directory + "sockstat");
    const auto sockets = socketsText ? kernel::parseTcpSockets(*socketsText) : std::nullopt;
    if (!range || !sockets) return std::nullopt;
    const double share = static_cast<double>(*sockets) / static_cast<double>(range->count());
    if (share < kSuspicious) return share;

    const double now = kernel::clockSeconds();
    if (now < space.nextCount) return space.share;
    const auto most = std::max(mostPorts(directory + "tcp", *range), mostPorts(directory + "tcp6", *range));
    space.nextCount = now + kPauseForCost * (kernel::clockSeconds() - now);
    if (!most) return std::nullopt;
    return static_cast<double>(*most) / static_cast<double>(range->count());
}
