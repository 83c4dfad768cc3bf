// counters.h - what has happened since the watch began, for a metrics collector. Pure: no file, no clock.
//
// A collector comes when it likes. So what happens is counted up and never goes back, and only what is a state is told as it
// is now. What is not known does not appear.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "evidence/evidence.h"
#include "evidenceMetrics.h"
#include "figures.h"

/// What is told beside the engines of each name and the watch itself.
struct ExpositionParts {
    bool perProcess = false;                             ///< also series for each engine, with its process id
    bool machine = false;                                ///< also the machine's figures, which other exporters have too
    std::optional<std::size_t> expected = std::nullopt;  ///< how many engines are to run
};

class Counters {
public:
    /// For how many seconds the counters of an engine stay when it has ended, with their last values: a collector that comes
    /// once a minute has them then, also if it misses one time. And of how many engines at most, the last ones.
    static constexpr double kEndedStays = 300;
    static constexpr std::size_t kMostEnded = 1000;

    /// The command names `names`, as the kernel keeps them, appear also while no engine of that name runs. A turn on a
    /// processor is late when a thread has waited for it longer than the tolerance.
    Counters(const std::vector<std::string>& names, double tolerance);

    /// Takes the next interval.
    void add(const Evidence& evidence);

    /// Everything up to the last interval. Memory is not part of the evidence and comes from the sample.
    std::string text(const Figures& sample, const ExpositionParts& parts) const;

private:
    struct Engine {
        ProcessKey key;
        double seen = 0;  // the end of the last interval in which it ran
        bool runs = false;
        Values values;
    };
    // All engines of a name.
    struct Name {
        std::size_t running = 0;
        std::size_t ended = 0;
        std::size_t killed = 0;  // of these, by a signal
        Values values;
    };
    using Engines = std::map<std::pair<std::string, int>, Engine>;  // by name and process id, as their labels
    using Memory = std::map<ProcessKey, double>;

    void addEngines(const Evidence& evidence, const Yardstick& yardstick);
    void addEnds(const Evidence& evidence);
    void forgetEnded(double now);
    void forgetMostEnded(std::vector<Engines::iterator> ended);
    void forgetNames();
    std::string watchText() const;
    std::string machineText(const Figures& sample) const;
    std::string namesText(const Memory& memory, std::optional<std::size_t> expected) const;
    std::string namesEndedText() const;
    std::string namesMemoryText(const Memory& memory) const;
    std::string enginesText(const Memory& memory) const;

    double tolerance_;
    std::set<std::string> wanted_;
    Engines engines_;
    std::map<std::string, Name> names_;
    Values machine_;
    Values watch_;
};
