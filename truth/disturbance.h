// disturbance.h - what holds engines back. The words:
//
//   hogs=N nice=N hog-cpu=N
//               so many programs that are always busy, of this priority, on this processor only
//   quota=P period=MS
//               the engines' control group may use so many per cent of one processor, in each period (100)
//   memory=M    their control group may use so many megabytes
//   disk=K      their control group may read and write so many kilobytes a second
//   freeze=1    their control group is frozen
//   stop=1      they are stopped with SIGSTOP
//   ports=N     they and pmenv have a network of their own with so many local ports
//   from=S for=S  all this, but ports, begins so long after the watch and lasts so long; else it is there throughout
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>

#include "processes.h"
#include "words.h"

/// The driver, and what it starts, are in a network of their own for the length of a scope.
class OwnNetwork {
public:
    explicit OwnNetwork(int ports);
    ~OwnNetwork() { leave(); }
    OwnNetwork(const OwnNetwork&) = delete;
    OwnNetwork& operator=(const OwnNetwork&) = delete;

private:
    void leave() const;

    int former_;
};

/// The control groups, and the network, that the engines live in; the groups are without limits at first. They outlive the
/// engines.
class Surroundings {
public:
    /// `file` lies on the disk that is limited.
    Surroundings(const Words& words, const std::string& file);

    Groups groups() const;
    void limit(const Words& words) const { set(words, true); }
    void lift(const Words& words) const { set(words, false); }

private:
    void set(const Words& words, bool inForce) const;

    std::string disk_;  ///< "254:0"
    std::optional<OwnNetwork> network_;
    std::map<std::string, ControlGroup> groups_;
};

/// Holds the engines back for the length of its scope.
class Disturbance {
public:
    Disturbance(const Words& words, const Surroundings& surroundings, const std::deque<Process>& engines);
    ~Disturbance();
    Disturbance(const Disturbance&) = delete;
    Disturbance& operator=(const Disturbance&) = delete;

private:
    void signalEngines(int number) const;

    const Words& words_;
    const Surroundings& surroundings_;
    const std::deque<Process>& engines_;
    std::deque<Process> hogs_;
};
