// run.h - what a chart shows of one load generator: its verdict, its figures over time, and what is known about it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "chart/series.h"
#include "evidence/evidence.h"
#include "evidence/seldomRead.h"
#include "judgement/judgement.h"
#include "recording/recording.h"

/// The figures that are drawn. Shares are 0 to 1, processors are counted.
enum class Figure {
    HeldBackWorst,
    HeldBackMedian,
    ThreadRunning,  ///< these six: of the thread with the least slack, of all engines
    ThreadWaiting,
    ThreadThrottled,
    ThreadStolen,
    ThreadBlocked,
    ThreadStopped,
    EngineProcessors,
    OtherProcessors,
    StolenProcessors,
    Throttled,
    MemoryInUse,
    GroupMemory,
    SwapBytes,
    Descriptors,
    Ports,
};
constexpr std::size_t kFigures = static_cast<std::size_t>(Figure::Ports) + 1;

/// The figure's name in the raw figures: "held_back_worst".
const char* figureName(Figure figure);

/// Gathers the figures of a run while its evidence is read, in bounded memory.
class RunFigures {
public:
    /// With more engines than this, the worst and the median stand for all.
    static constexpr std::size_t kFewEngines = 4;

    explicit RunFigures(double tolerance) : tolerance_(tolerance) {}

    void add(const Evidence& evidence);

    const Series& operator[](Figure figure) const { return series_[static_cast<std::size_t>(figure)]; }
    /// The held-back share of each engine; empty when there were many.
    const std::map<ProcessKey, Series>& engines() const { return engines_; }
    /// The most processors that the machine had.
    int processors() const { return processors_; }

private:
    Series& of(Figure figure) { return series_[static_cast<std::size_t>(figure)]; }
    void addInterval(const Evidence& evidence);
    void addHeldBack(const Evidence& evidence);
    void addBusiestThread(const Evidence& evidence);
    void addProcessors(const Evidence& evidence);
    void addEngineFigures(const Evidence& evidence);
    void addMemory(const Evidence& evidence);
    void addShareOf(const ProcessKey& key, const Evidence& evidence, double share);

    double tolerance_;
    std::array<Series, kFigures> series_;
    std::map<ProcessKey, Series> engines_;
    bool engineSeen_ = false;  // that does not stand in for others
    bool manyEngines_ = false;
    int processors_ = 1;
    SeldomRead memoryRead_;
};

using NamedTexts = std::vector<std::pair<std::string, std::string>>;

struct ChartRun {
    explicit ChartRun(const JudgeLimits& judgedBy) : limits(judgedBy), figures(judgedBy.tolerance) {}

    std::string host;
    std::chrono::system_clock::time_point start;
    JudgeLimits limits;
    Judged judged;
    RunFigures figures;
    double seconds = 0;     ///< from the start to the end of what was recorded
    double judgedFrom = 0;  ///< seconds after the start at which the judged part begins
    std::vector<Mark> marks;
    NamedTexts facts;                  ///< about the host and the recording
    NamedTexts options;                ///< of the watch
    std::vector<std::string> remarks;  ///< that the reader must know, such as "the recording breaks off"
};
