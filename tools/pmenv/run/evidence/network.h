// network.h - local ports in use, in the network namespace of an engine.
#pragma once

#include <map>
#include <optional>
#include <string>

class Network {
public:
    Network();

    /// The share of the local ports that are in use; empty where it cannot be told. One answer a second and namespace.
    std::optional<double> portShare(int pid);

    /// Forgets the answers, so that the next are read anew.
    void refresh();

private:
    struct Namespace {
        std::optional<double> share;
        bool fresh = false;
        double nextCount = 0;  // when the ports may be counted for each destination again
    };

    std::optional<double> read(int pid, Namespace& space) const;

    std::string own_;  // this process's namespace, whose range of ports can be read
    std::map<std::string, Namespace> spaces_;
};
