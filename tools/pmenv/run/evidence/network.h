// network.h - local ports in use, in the network namespace of an engine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "kernel/networkFiles.h"

/// The range of local ports can be read of this process's own namespace only: /proc/sys shows that of whoever reads it.
/// Entering another would take rights that pmenv should not need, so that ports of engines elsewhere are not known.
class Network {
public:
    Network();

    /// The share of the local ports that are in use; empty where it cannot be told. One answer a second.
    std::optional<double> portShare(int pid);

    /// Forgets the answer, so that the next is read anew.
    void refresh();

    /// The processor time that counting has taken since then. It is rationed here, and is no reason to look less often.
    double countingSeconds() const { return countingSeconds_; }

private:
    std::optional<double> read(int pid);
    bool count(const std::string& directory, const kernel::PortRange& range, std::uint64_t sockets);

    std::string own_;  // this process's namespace
    std::optional<double> share_;
    bool fresh_ = false;
    double countingSeconds_ = 0;
    double nextCount_ = 0;      // when the ports may be counted for each destination again
    double portsOfSocket_ = 0;  // how many of the ports of one destination there were for each socket at the last count
};
