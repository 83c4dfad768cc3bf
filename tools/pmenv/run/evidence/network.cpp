#include "evidence/network.h"

#include <algorithm>

#include "kernel/files.h"
#include "kernel/networkFiles.h"

namespace {

constexpr double kSuspicious = 0.5;           // of all ports
constexpr double kPauseForCost = 100;         // times what a count took, which can be 30 ms for a few connections, too
constexpr std::size_t kMostText = 64u << 20;  // bytes of a list of connections

std::optional<std::uint64_t> mostPorts(const std::string& path, const kernel::PortRange& range) {
    const auto text = kernel::readFile(path, kMostText);
    return text ? kernel::parseMostPortsOfOneDestination(*text, range) : std::nullopt;
}

}  // namespace

Network::Network() : own_(kernel::linkTarget("/proc/self/ns/net")) {}

void Network::refresh() {
    fresh_ = false;
    countingSeconds_ = 0;
}

std::optional<double> Network::portShare(int pid) {
    const std::string name = kernel::linkTarget("/proc/" + std::to_string(pid) + "/ns/net");
    if (name.empty() || name != own_) return std::nullopt;
    if (!fresh_) share_ = read(pid);
    fresh_ = true;
    return share_;
}

// A port can be in use towards each destination once, so the sum of all sockets is only where the suspicion begins.
std::optional<double> Network::read(int pid) {
    const std::string directory = "/proc/" + std::to_string(pid) + "/net/";
    const auto rangeText = kernel::readFile("/proc/sys/net/ipv4/ip_local_port_range");
    const auto range = rangeText ? kernel::parsePortRange(*rangeText) : std::nullopt;
    const auto socketsText = kernel::readFile(directory + "sockstat");
    const auto sockets = socketsText ? kernel::parseTcpSockets(*socketsText) : std::nullopt;
    if (!range || !sockets) return std::nullopt;
    const double share = static_cast<double>(*sockets) / static_cast<double>(range->count());
    if (share < kSuspicious) return share;
    if (!count(directory, *range, *sockets)) return std::nullopt;
    return std::min(1.0, portsOfSocket_ * share);
}

// Between two counts the sockets are taken to be shared among the destinations as they were. False when they cannot be
// counted.
bool Network::count(const std::string& directory, const kernel::PortRange& range, std::uint64_t sockets) {
    const double now = kernel::clockSeconds();
    if (now < nextCount_) return true;
    const double before = kernel::ownCpuSeconds();
    const auto most = mostPorts(directory + "tcp", range), most6 = mostPorts(directory + "tcp6", range);
    countingSeconds_ += kernel::ownCpuSeconds() - before;
    if (!most) return false;
    nextCount_ = now + kPauseForCost * (kernel::clockSeconds() - now);
    portsOfSocket_ = static_cast<double>(std::max(*most, most6.value_or(0))) / static_cast<double>(sockets);
    return true;
}
