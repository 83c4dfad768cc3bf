// Measures watching load engines, and sampling a machine with many processes, against the system's own tools. A call lasts
// for seconds, of which nearly all are spent asleep: what counts is the processor time that it takes.
#include <string>
#include <vector>

#include "areas.h"
#include "children.h"
#include "population.h"

namespace {

constexpr int kSeconds = 5;

// Once a second is the most that pidstat does; pmenv looks at each thread four times a second and more.
void measureJudge(Report& report) {
    const Population population(50, 50, 20);
    const std::string seconds = std::to_string(kSeconds);
    Row row{"a second of pmenv judge",
            "50 engines of 20 threads",
            {},
            {{Kind::Ours, "",
              [seconds] {
                  runProgram({PMENV_BINARY, "judge", "--duration", seconds, "--json"}, {0, 3, 4});
              }}},
            kSeconds,
            false,
            2};
#ifdef ALTERNATIVES
    row.ways.push_back({Kind::Alternative, "pidstat -t, once a second", [seconds] {
                            runProgram({"/usr/bin/pidstat", "-t", "1", seconds});
                        }});
    row.ways.push_back({Kind::Alternative, "top -H -b, once a second", [] {
                            runProgram({"/usr/bin/top", "-H", "-b", "-d", "1", "-n", std::to_string(kSeconds + 1)});
                        }});
#endif
    report.measure(row);
}

// Each of them takes a first sample to compare with, and so many that it prints.
void measureStats(Report& report, int processes) {
    const Population population(processes, 20);
    const std::string samples = std::to_string(kSeconds);
    Row row{"a sample of pmenv stats",
            std::to_string(processes) + " processes, 20 engines",
            {},
            {{Kind::Ours, "",
              [samples] {
                  runProgram({PMENV_BINARY, "stats", "--json", "--count", samples});
              }}},
            kSeconds,
            false,
            2};
#ifdef ALTERNATIVES
    row.ways.push_back({Kind::Alternative, "pidstat -u -r", [samples] {
                            runProgram({"/usr/bin/pidstat", "-u", "-r", "1", samples});
                        }});
    row.ways.push_back({Kind::Alternative, "top -b", [] {
                            runProgram({"/usr/bin/top", "-b", "-d", "1", "-n", std::to_string(kSeconds + 1)});
                        }});
#endif
    report.measure(row);
}

}  // namespace

void measureWatching(Report& report) {
    measureJudge(report);
    for (const int processes : {200, 1000}) measureStats(report, processes);
}
