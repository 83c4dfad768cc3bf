#include "verdict.h"

#include <algorithm>
#include <cmath>

#include "units.h"

namespace {

constexpr double kMegabyte = 1024.0 * 1024.0;

const char* kindName(Finding::Kind kind) {
    switch (kind) {
        case Finding::Kind::MachineCpu:
            return "machineCpu";
        case Finding::Kind::EngineCpu:
            return "engineCpu";
        case Finding::Kind::Memory:
            return "memory";
        case Finding::Kind::Swap:
            return "swap";
    }
    return "";
}

Json orNull(std::optional<double> figure) { return figure ? Json(*figure) : Json(); }
Json orNull(std::optional<std::uint64_t> figure) { return figure ? Json(*figure) : Json(); }

void keepLargest(std::optional<double>& largest, std::optional<double> figure) {
    if (figure && (!largest || *figure > *largest)) largest = figure;
}

std::string during(const Finding& finding) {
    return "for " + secondsText(finding.seconds) + ", from second " + std::to_string(std::lround(finding.since)) +
           " on";
}

}  // namespace

// --- watching -------------------------------------------------------------------------------------------------------

void Verdict::add(const Figures& figures) {
    follow(machine_, {Finding::Kind::MachineCpu}, figures.cpuPercent, limits_.machinePercent, figures);
    keepLargest(busiestMachine_, figures.cpuPercent);
    addEngines(figures);
    addMemory(figures);
    addSwap(figures);
    if (!first_) first_ = figures.seconds;
    last_ = figures.seconds;
}

// A percentage describes the time since the sample before, so a stretch begins there. An unknown figure neither ends a
// stretch nor makes it longer.
void Verdict::follow(Stretch& stretch, Finding finding, std::optional<double> figure, double limit,
                     const Figures& figures) {
    if (!figure) return;
    const bool beyond = *figure >= limit;
    if (!beyond) {
        stretch.open = false;
        if (stretch.longest) stretch.longest->lasting = false;
        return;
    }
    if (!stretch.open) stretch = {true, last_.value_or(figures.seconds), *figure, stretch.longest};
    stretch.worst = std::max(stretch.worst, *figure);

    finding.worst = stretch.worst;
    finding.since = stretch.since;
    finding.seconds = figures.seconds - stretch.since;
    finding.lasting = true;
    if (finding.seconds < limits_.seconds) return;
    const bool record = !stretch.longest || finding.seconds >= stretch.longest->seconds;
    if (record) stretch.longest = finding;
    stretch.longest->lasting = true;
}

void Verdict::addEngines(const Figures& figures) {
    for (auto& [processId, stretch] : engines_) {
        const bool runs = std::any_of(figures.engines.begin(), figures.engines.end(),
                                      [id = processId](const EngineFigures& engine) { return engine.processId == id; });
        if (!runs) follow(stretch, {Finding::Kind::EngineCpu, processId}, 0.0, limits_.enginePercent, figures);
    }
    for (const EngineFigures& engine : figures.engines) {
        follow(engines_[engine.processId], {Finding::Kind::EngineCpu, engine.processId}, engine.cpuPercent,
               limits_.enginePercent, figures);
        keepLargest(busiestEngine_, engine.cpuPercent);
    }
}

void Verdict::addMemory(const Figures& figures) {
    if (!figures.availableBytes || figures.memoryBytes == 0) return;
    const double percent =
        100.0 * static_cast<double>(*figures.availableBytes) / static_cast<double>(figures.memoryBytes);
    leastMemory_ = std::min(leastMemory_.value_or(percent), percent);
    const bool beyond = percent < limits_.memoryPercent;
    if (beyond && !memory_) memory_ = Finding{Finding::Kind::Memory, 0, percent, 0, figures.seconds, true};
    if (!memory_) return;
    memory_->worst = *leastMemory_;
    memory_->lasting = beyond;
}

void Verdict::addSwap(const Figures& figures) {
    if (!figures.swapUsedBytes) return;
    leastSwap_ = std::min(leastSwap_.value_or(*figures.swapUsedBytes), *figures.swapUsedBytes);
    const std::uint64_t growthBytes = *figures.swapUsedBytes - *leastSwap_;
    swapGrowth_ = std::max(swapGrowth_.value_or(0), growthBytes);
    const double growth = static_cast<double>(growthBytes);
    const bool beyond = growth > limits_.swapMegabytes * kMegabyte;
    if (beyond && !swap_) swap_ = Finding{Finding::Kind::Swap, 0, growth, 0, figures.seconds, true};
    if (!swap_) return;
    swap_->worst = std::max(swap_->worst, growth);
    swap_->lasting = beyond;
}

// --- judging --------------------------------------------------------------------------------------------------------

std::vector<Finding> Verdict::findings() const {
    std::vector<Finding> findings;
    if (machine_.longest) findings.push_back(*machine_.longest);
    for (const auto& [processId, stretch] : engines_) {
        if (stretch.longest) findings.push_back(*stretch.longest);
    }
    if (memory_) findings.push_back(*memory_);
    if (swap_) findings.push_back(*swap_);
    return findings;
}

double Verdict::seconds() const { return first_ ? *last_ - *first_ : 0; }

std::string findingText(const Finding& finding, const VerdictLimits& limits) {
    switch (finding.kind) {
        case Finding::Kind::MachineCpu:
            return "the machine's processors were at or over " + percentText(limits.machinePercent) + " " +
                   during(finding) + " (up to " + percentText(finding.worst) +
                   "): load is sent late; use more load generators";
        case Finding::Kind::EngineCpu:
            return "load engine " + std::to_string(finding.processId) + " was at or over " +
                   percentText(limits.enginePercent) + " of one processor " + during(finding) + " (up to " +
                   percentText(finding.worst) + "): it sends its load late; spread its work over more engines";
        case Finding::Kind::Memory:
            return "available memory fell to " + percentText(finding.worst) + ", under " +
                   percentText(limits.memoryPercent) + " from second " + std::to_string(std::lround(finding.since)) +
                   " on: the machine may start to swap; run fewer users here";
        case Finding::Kind::Swap:
            return "swap in use grew by " + bytesText(static_cast<std::uint64_t>(finding.worst)) + ", from second " +
                   std::to_string(std::lround(finding.since)) + " on: engines wait for the disk; run fewer users here";
    }
    return {};
}

std::string verdictText(const Verdict& verdict) {
    const std::vector<Finding> findings = verdict.findings();
    const std::string watched = "watched for " + secondsText(verdict.seconds()) + ", " +
                                std::to_string(verdict.engineCount()) +
                                (verdict.engineCount() == 1 ? " load engine" : " load engines");
    if (findings.empty()) {
        return "Healthy: this load generator was not the bottleneck (" + watched +
               ").\n  processors of the machine: at most " + percentText(verdict.busiestMachine()) +
               "\n  busiest load engine: at most " + percentText(verdict.busiestEngine()) +
               " of one processor\n  available memory: at least " + percentText(verdict.leastMemory()) +
               "\n  growth of swap in use: " + bytesText(verdict.swapGrowth()) + "\n";
    }
    std::string text = "Saturated: this load generator was itself the bottleneck (" + watched + ").\n";
    for (const Finding& finding : findings) text += "  - " + findingText(finding, verdict.limits()) + "\n";
    return text;
}

Json verdictJson(const Verdict& verdict) {
    Json json{{"verdict", verdict.saturated() ? "saturated" : "healthy"},
              {"seconds", verdict.seconds()},
              {"engines", verdict.engineCount()},
              {"busiestMachinePercent", orNull(verdict.busiestMachine())},
              {"busiestEnginePercentOfOne", orNull(verdict.busiestEngine())},
              {"leastAvailablePercent", orNull(verdict.leastMemory())},
              {"swapGrowthBytes", orNull(verdict.swapGrowth())},
              {"findings", Json::array()}};
    for (const Finding& finding : verdict.findings()) {
        const bool ofEngine = finding.kind == Finding::Kind::EngineCpu;
        json["findings"].push_back({{"kind", kindName(finding.kind)},
                                    {"pid", ofEngine ? Json(finding.processId) : Json()},
                                    {"worst", finding.worst},
                                    {"since", finding.since},
                                    {"seconds", finding.seconds},
                                    {"text", findingText(finding, verdict.limits())}});
    }
    return json;
}
