// engineWatch.h - one engine, from the moment it is found until it ends.
#pragma once

#include <cstdint>
#include <optional>

#include "evidence/evidence.h"
#include "evidence/groups.h"
#include "evidence/network.h"
#include "evidence/processes.h"
#include "evidence/threads.h"

class EngineWatch {
public:
    EngineWatch(const FoundEngine& found, const IgnoredThreads& ignored, double time);
    ~EngineWatch();
    EngineWatch(const EngineWatch&) = delete;
    EngineWatch& operator=(const EngineWatch&) = delete;

    /// What changes seldom or is dear to read; about once a second.
    void readSlowSignals(const FoundEngine& found, const Groups& groups, Network& network);

    /// The interval since the last call. Empty when the engine has ended.
    std::optional<EngineEvidence> sample(IntervalContext context, Groups& groups, double time);

    /// How it ended, once sample() has told nothing more.
    EngineEnd end(const Groups& groups, double time) const;

    /// Looks at its threads between two samples.
    void look(double tolerance) { threads_.look(tolerance); }
    std::size_t threadCount() const { return threads_.size(); }

private:
    FoundEngine found_;
    Threads threads_;
    GroupPlaces places_;
    int process_;  // descriptor of the process itself; -1 where the kernel gives none
    double last_;
    std::optional<Usage> descriptors_;
    PortUse ports_;
    std::uint64_t majorFaults_ = 0;  // since the last sample
    bool faulting_ = false;
    std::optional<std::uint64_t> untoldKills_;  // in the interval in which it ended
};
