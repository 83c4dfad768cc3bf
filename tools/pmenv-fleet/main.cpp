// pmenv-fleet - the command 'fleet' of pmenv: judges all load generators of a run by what a Prometheus server knows.
#include <algorithm>
#include <chrono>
#include <iostream>

#include <unistd.h>

#include "fleetCommand.h"
#include "fleetOptions.h"
#include "program.h"
#include "prometheus.h"
#include "verdict/formats.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

// The server may say the same of several queries.
void addNew(const std::vector<std::string>& warnings, std::vector<std::string>* all) {
    for (const std::string& warning : warnings) {
        if (std::find(all->begin(), all->end(), warning) == all->end()) all->push_back(warning);
    }
}

FleetRun runOf(const FleetOptions& options) {
    const milliseconds window = options.to - options.from;
    Prometheus server(options.url, options.timeout);
    FleetRun run{shownUrl(options.url), options.job, options.from, options.to, options.percentile, {}, {}};
    Fleet fleet;
    for (const Figure& figure : figures()) {
        const Answer answer = server.query(queryFor(figure, options.job, window.count()), options.to);
        addAnswer(figure, answer, &fleet);
        addNew(answer.warnings, &run.warnings);
    }
    run.generators = judged(fleet, options.percentile, std::chrono::duration<double>(window).count());
    return run;
}

int judgeFleet(const CommandLine& line) {
    const FleetOptions options = fleetOptions(line, std::chrono::time_point_cast<milliseconds>(system_clock::now()));
    const FleetRun run = runOf(options);
    for (const std::string& warning : run.warnings) printWarning(run.server + ": " + warning);
    if (options.json) {
        printJson(fleetJson(run));
    } else {
        std::cout << fleetText(run, Style(STDOUT_FILENO));
    }
    return exitCodeOf(outcomeOf(run));
}

Grammar fleetGrammar() {
    Grammar grammar{globalOptions(), {fleetCommand()}};
    grammar.commands[0].run = judgeFleet;
    return grammar;
}

}  // namespace

int main(int argc, char** argv) { return runCommandLine(fleetGrammar(), argc, argv); }
