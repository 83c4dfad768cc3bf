#include "evidence/network.h"

#include <algorithm>

#include "kernel/files.h"
#include "kernel/networkFiles.h"

namespace {

constexpr double kSuspicious = 0.5;           // of all ports
constexpr double kPauseForCost = 100;         // times what a count took, which can be 30 ms for a few connections, too
constexpr double kPauseInGrowth = 10;         // while there are ever more
constexpr std::size_t kMostText = 64u << 20;  // bytes of a list of connections

std::optional<kernel::PortsInUse> mostPorts(const std::string& path, const kernel::PortRange& range) {
    const auto text = kernel::readFile(path, kMostText);
    return text ? kernel::parseMostPortsOfOneDestination(*text, range) : std::nullopt;
}

// Of both families. A machine without IPv6 has no list of it.
std::optional<std::uint64_t> tcpSockets(const std::string& directory) {
    const auto text = kernel::readFile(directory + "sockstat");
    const auto sockets = text ? kernel::parseTcpSockets(*text) : std::nullopt;
    const auto text6 = kernel::readFile(directory + "sockstat6");
    const auto sockets6 = text6 ? kernel::parseTcp6Sockets(*text6) : 0;
    return sockets && sockets6 ? std::optional(*sockets + *sockets6) : std::nullopt;
}

// The ports of this process's namespace that are given to programs that ask for any. Old kernels reserve none.
std::optional<double> portsToGive(const kernel::PortRange& range) {
    const auto text = kernel::readFile("/proc/sys/net/ipv4/ip_local_reserved_ports");
    const auto reserved = text ? kernel::parseReservedPorts(*text, range) : 0;
    if (!reserved || *reserved >= range.count()) return std::nullopt;
    return static_cast<double>(range.count() - *reserved);
}

}  // namespace

Network::Network() : own_(kernel::linkTarget("/proc/self/ns/net")) {}

void Network::refresh() {
    countingSeconds_ = 0;
    for (auto entry = namespaces_.begin(); entry != namespaces_.end();) {
        const bool left = !entry->second.fresh;  // by all engines
        entry->second.fresh = false;
        entry = left ? namespaces_.erase(entry) : std::next(entry);
    }
}

PortUse Network::ports(int pid) {
    const std::string name = kernel::linkTarget("/proc/" + std::to_string(pid) + "/ns/net");
    if (name.empty() || own_.empty()) return {};
    Namespace& space = namespaces_[name];
    if (!space.fresh) space.use = read(space, pid, name == own_);
    space.fresh = true;
    return space.use;
}

PortUse Network::read(Namespace& space, int pid, bool own) {
    const std::string directory = "/proc/" + std::to_string(pid) + "/net/";
    const auto sockets = tcpSockets(directory);
    if (!sockets) return {};
    if (!own) return {shareElsewhere(space, directory, *sockets), std::nullopt, true};
    const auto ports = ownPorts(space, directory, *sockets);
    return {ports ? std::optional(ports->share()) : std::nullopt, ports, false};
}

// A port can be in use towards each destination once, so the sum of all sockets is only where the suspicion begins. Between
// two counts the sockets are taken to be shared among the destinations as they were.
std::optional<Usage> Network::ownPorts(Namespace& space, const std::string& directory, std::uint64_t sockets) {
    const auto text = kernel::readFile("/proc/sys/net/ipv4/ip_local_port_range");
    const auto range = text ? kernel::parsePortRange(*text) : std::nullopt;
    const auto limit = range ? portsToGive(*range) : std::nullopt;
    if (!limit) return std::nullopt;
    Usage ports{static_cast<double>(sockets), *limit};
    if (ports.share() < kSuspicious) return ports;
    if (isTimeToCount(space, kPauseForCost) && !count(space, directory, *range, sockets)) return std::nullopt;
    const double portsOfSocket = static_cast<double>(space.mostPorts.count) / static_cast<double>(space.sockets);
    ports.used = std::min(*ports.limit, portsOfSocket * ports.used);
    return ports;
}

// Nobody sets a range of fewer ports than this, so that half as many are no suspicion.
std::optional<double> Network::shareElsewhere(Namespace& space, const std::string& directory, std::uint64_t sockets) {
    constexpr std::uint64_t kLeastRange = 32;
    constexpr double kMuchMore = 1.1;
    if (sockets < kLeastRange / 2) return static_cast<double>(sockets) / kLeastRange;
    const bool grown = static_cast<double>(sockets) > kMuchMore * static_cast<double>(space.sockets);
    const bool isTime = isTimeToCount(space, grown ? kPauseInGrowth : kPauseForCost);
    if (isTime && !count(space, directory, {1, 65535}, sockets)) return std::nullopt;
    const kernel::PortsInUse& most = space.mostPorts;
    const std::uint64_t range = std::max(most.highest - most.lowest + 1, kLeastRange);
    return std::min(1.0, static_cast<double>(most.count) / static_cast<double>(range));
}

bool Network::isTimeToCount(const Namespace& space, double pauseForCost) const {
    const double pause = pauseForCost * static_cast<double>(namespaces_.size()) * space.took;
    return kernel::clockSeconds() >= space.counted + pause;
}

// False when that cannot be done.
bool Network::count(Namespace& space, const std::string& directory, const kernel::PortRange& range,
                    std::uint64_t sockets) {
    const double begin = kernel::clockSeconds(), cpuBefore = kernel::ownCpuSeconds();
    const auto most = mostPorts(directory + "tcp", range), most6 = mostPorts(directory + "tcp6", range);
    countingSeconds_ += kernel::ownCpuSeconds() - cpuBefore;
    if (!most) return false;
    space.counted = begin;
    space.took = kernel::clockSeconds() - begin;
    space.sockets = sockets;
    space.mostPorts = most6 && most6->count > most->count ? *most6 : *most;
    return true;
}
