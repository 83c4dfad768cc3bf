// Measures watching load engines, and sampling a machine with many processes, against the system's own tools. A call lasts
// for seconds, of which nearly all are spent asleep: what counts is the processor time that it takes.
#include <string>
#include <utility>
#include <vector>

#include "areas.h"
#include "children.h"
#include "population.h"

namespace {

constexpr int kSeconds = 5;

Way judge() {
    return {Kind::Ours, "", [] {
                runProgram({PMENV_BINARY, "judge", "--duration", std::to_string(kSeconds), "--json"}, {0, 3, 4});
            }};
}

#ifdef ALTERNATIVES
Way program(const std::string& name, const std::vector<std::string>& words) {
    return {Kind::Alternative, name, [words] { runProgram(words); }};
}

// Each of them takes a first sample to compare with, and so many that it prints.
std::vector<Way> processSamplers() {
    const std::string samples = std::to_string(kSeconds), withFirst = std::to_string(kSeconds + 1);
    const std::string htop = "timeout " + samples + ".5 htop -d 10";  // draws on a terminal, and has no other way
    return {program("pidstat -u -r", {"/usr/bin/pidstat", "-u", "-r", "1", samples}),
            program("top -b", {"/usr/bin/top", "-b", "-d", "1", "-n", withFirst}),
            program("htop", {"/usr/bin/env", "TERM=xterm", "script", "-qc", htop, "/dev/null"}),
            program("a script with psutil", {PSUTIL_SAMPLER, samples})};
}

// Once a second is the most that pidstat does; pmenv looks at each thread four times a second and more.
std::vector<Way> threadSamplers() {
    const std::string samples = std::to_string(kSeconds), withFirst = std::to_string(kSeconds + 1);
    return {program("pidstat -t, once a second", {"/usr/bin/pidstat", "-t", "1", samples}),
            program("top -H -b, once a second", {"/usr/bin/top", "-H", "-b", "-d", "1", "-n", withFirst})};
}
#else
std::vector<Way> processSamplers() { return {}; }
std::vector<Way> threadSamplers() { return {}; }
#endif

void measureAmong(Report& report, const std::string& operation, const std::string& size, Way ours,
                  std::vector<Way> alternatives) {
    alternatives.insert(alternatives.begin(), std::move(ours));
    report.measure({operation, size, {}, std::move(alternatives), kSeconds, false, 2});
}

void measureManyThreads(Report& report) {
    const Population population(50, 50, 20);
    measureAmong(report, "a second of pmenv judge", "50 engines of 20 threads", judge(), threadSamplers());
}

void measureManyProcesses(Report& report, int processes) {
    const Population population(processes, 20);
    const std::string size = std::to_string(processes) + " processes, 20 engines";
    const Way stats{Kind::Ours, "", [] {
                        runProgram({PMENV_BINARY, "stats", "--json", "--count", std::to_string(kSeconds)});
                    }};
    measureAmong(report, "a sample of pmenv stats", size, stats, processSamplers());
    measureAmong(report, "a second of pmenv judge", size, judge(), processSamplers());
}

}  // namespace

void measureWatching(Report& report) {
    measureManyThreads(report);
    for (const int processes : {200, 1000}) measureManyProcesses(report, processes);
}
