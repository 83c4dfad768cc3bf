// Measures the statistics among many processes.
#include <string>
#include <vector>

#include "MachineStats.h"
#include "Realtime.h"
#include "areas.h"
#include "floors.h"
#include "population.h"

#ifdef ALTERNATIVES
#include <libproc2/pids.h>
#endif

// Replaces the library's clock: the program's function is found before the library's own. The samplers sample a process
// once a second. This clock moves on by more than that at each call, as it does for a program that collects every other
// second.
std::uint64_t nRealtime::gCurrentRaw_compiler() {
    static std::uint64_t now = 0;
    return now += 2'000'000;
}

namespace {

#ifdef ALTERNATIVES
// Lists the processes with libproc2 and keeps those with an engine's name.
std::vector<int> enginesByLibproc2() {
    pids_item items[] = {PIDS_ID_PID, PIDS_CMD};
    pids_info* info = nullptr;
    std::vector<int> engines;
    check(procps_pids_new(&info, items, 2) == 0, "libproc2");
    while (pids_stack* const stack = procps_pids_get(info, PIDS_FETCH_TASKS_ONLY)) {
        const std::string name = PIDS_VAL(1, str, stack, info);
        if (name.find("PMLoadEngineMai") != name.npos) engines.push_back(PIDS_VAL(0, s_int, stack, info));
    }
    procps_pids_unref(&info);
    return engines;
}
#endif

std::vector<int> engines() {
    std::vector<int> pids;
    getSlavesList(pids, 0);
    return pids;
}

void measureListing(Report& report, const std::string& size) {
    Row row{"getSlavesList", size, {1, 1.25}, {{Kind::Ours, "", [] { keep(engines().data()); }}}};
#ifdef ALTERNATIVES
    check(engines() == enginesByLibproc2(), "libproc2 finds the same engines");
    row.ways.push_back({Kind::Alternative, "libproc2", [] { keep(enginesByLibproc2().data()); }});
#endif
    row.ways.push_back({Kind::Floor, "", readEveryProcess});
    report.measure(row);
}

void measureCollecting(Report& report, const std::string& size, Goal goal) {
    MachineStats collector;
    KREnvMachineStats stats{};
    collector.CollectMachineStats(stats, false);
    check(stats.slaves.size() == engines().size(), "all engines collected");
    report.measure({"CollectMachineStats",
                    size,
                    goal,
                    {{Kind::Ours, "", [&] { collector.CollectMachineStats(stats, false); }},
                     {Kind::Floor, "", [pids = engines()] { readStatistics(pids); }}}});
}

}  // namespace

void measureProcesses(Report& report) {
    const struct { int processes, engines; } sizes[] = {{250, 25}, {1000, 100}, {1000, 1000}};
    for (const auto& [processes, engines] : sizes) {
        const Population population(processes, engines);
        const std::string size = std::to_string(processes) + " processes, " + std::to_string(engines) + " engines";
        if (engines == 100) measureListing(report, size);
        measureCollecting(report, size, engines == 100 ? Goal{0, 1.25} : Goal{});
    }
}
