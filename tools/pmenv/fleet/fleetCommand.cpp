// fleet: all load generators of a run, as a Prometheus server has watched them.
//
// A program of its own asks the server, so that pmenv itself, which every host has, loads no library for HTTP.
#include "fleetCommand.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "CommandLineArguments.h"
#include "failure.h"
#include "fleetOptions.h"

namespace {

constexpr char kProgram[] = "pmenv-fleet";

// The file beside this program's own, wherever it was started from; "" where that cannot be read.
std::string programBesideThis() {
    char own[4096];
    const ssize_t length = readlink("/proc/self/exe", own, sizeof own);
    if (length <= 0) return "";
    const std::string path(own, static_cast<std::size_t>(length));
    return path.substr(0, path.rfind('/') + 1) + kProgram;
}

// Returns only if the program cannot be started.
void becomeFleetProgram() {
    std::vector<std::string> words{kProgram};
    for (int i = 1; i < nCommandLineArguments::gCount(); ++i) words.push_back(nCommandLineArguments::gGet(i));
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(programBesideThis().c_str(), arguments.data());
    if (errno == ENOENT) execvp(kProgram, arguments.data());
}

int startFleetProgram(const CommandLine& line) {
    fleetOptions(line, std::chrono::time_point_cast<std::chrono::milliseconds>(std::chrono::system_clock::now()));
    becomeFleetProgram();
    const int error = errno;
    if (error != ENOENT) throw Failure(std::string("cannot start ") + kProgram + ": " + std::strerror(error));
    throw Failure(std::string("the program ") + kProgram +
                  " is neither beside pmenv nor in a directory of PATH; install the package pmenv-fleet");
}

}  // namespace

Command fleetCommand() {
    constexpr Option::Kind kText = Option::Kind::Text;
    constexpr Option::Kind kNumber = Option::Kind::Number;
    return {
        "fleet",
        "all load generators of a run, from a Prometheus server: which of them spoiled it, and why?",
        {},
        {
            {"prometheus", kText, "URL", "the server, as http://HOST:9090; a path behind it is kept"},
            {"from", kText, "T",
             "when the run began: 2026-11-21T18:00:00+01:00, seconds since 1970, or before now as -90s, -10m, -2h, "
             "-1d"},
            {"to", kText, "T", "when it ended; now unless given"},
            {"percentile", kNumber, "P", "the percentile to judge; 99 unless given", 0, 100},
            {"job", kText, "NAME", "the job under which the server knows the load generators; pmenv unless given"},
            {"timeout", kNumber, "SECONDS", "how long the server may take in all; 30 unless given", 1, 3600},
        },
        "pmenv fleet --prometheus http://monitor:9090 --from -10m   exit code 0 clean, 3 spoiled, 4 cannot tell\n"
        "pmenv fleet --prometheus https://monitor/prometheus --from 2026-11-21T18:00:00Z --to 2026-11-21T19:00:00Z\n"
        "pmenv fleet --prometheus http://monitor:9090 --from -1h --percentile 95 --json   as JSON, for a pipeline",
        startFleetProgram,
        "The server collects what pmenv-exporter tells on each load generator. Every one of the job that the server "
        "tried to reach in this time is in the table. One without figures is cannot tell, never clean.\n\n"
        "The program pmenv-fleet does the work. It is a package of its own."};
}
