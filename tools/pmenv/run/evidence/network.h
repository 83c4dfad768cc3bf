// network.h - local ports in use, in the network namespaces of the engines.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "evidence/evidence.h"
#include "kernel/networkFiles.h"

/// How many of the local ports that an engine can have are in use.
struct PortUse {
    std::optional<double> share;  ///< empty where it cannot be told
    std::optional<Usage> ports;   ///< empty where only the share can be told
    bool atMost = false;          ///< the share can be less
};

/// The range of local ports can be read of this process's own namespace only: /proc/sys shows that of whoever reads it, and
/// entering another would take rights that pmenv should not need. Elsewhere the range is at least as wide as the ports in
/// use lie apart, which tells how many are in use at most.
class Network {
public:
    Network();

    /// One answer a second for each namespace.
    PortUse ports(int pid);

    /// Forgets the answers, so that the next are read anew.
    void refresh();

    /// The processor time that counting has taken since then. It is rationed here, and is no reason to look less often.
    double countingSeconds() const { return countingSeconds_; }

private:
    struct Namespace {
        PortUse use;
        bool fresh = false;
        double counted = -1e9;  // when the ports were; the following are of that count
        double took = 0;        // seconds
        std::uint64_t sockets = 0;
        kernel::PortsInUse mostPorts;
    };

    PortUse read(Namespace& space, int pid, bool own);
    std::optional<Usage> ownPorts(Namespace& space, const std::string& directory, std::uint64_t sockets);
    std::optional<double> shareElsewhere(Namespace& space, const std::string& directory, std::uint64_t sockets);
    bool isTimeToCount(const Namespace& space, double pauseForCost) const;
    bool count(Namespace& space, const std::string& directory, const kernel::PortRange& range, std::uint64_t sockets);

    std::string own_;  // this process's namespace
    std::map<std::string, Namespace> namespaces_;
    double countingSeconds_ = 0;
};
