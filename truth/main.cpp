// truth_bench - holds `pmenv judge` against engines that know how late they are. `./dev truth` builds and runs it.
//
//   truth_bench run FILE SEED REPETITIONS [SITUATION...]   all situations, or these; the rows go into FILE
//   truth_bench table FILE                                 what came of them, as Markdown
//   truth_bench check SITUATION                            up to three times; 0 when pmenv and the engine agree, 77
//                                                          when the machine does not permit the situation
//   truth_bench list
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "processes.h"
#include "situations.h"
#include "table.h"
#include "trial.h"

namespace {

using Json = nlohmann::json;

constexpr int kSkipped = 77;

std::vector<const Situation*> situationsNamed(const std::vector<std::string>& names) {
    std::vector<const Situation*> found;
    for (const std::string& name : names) {
        found.push_back(findSituation(name));
        if (found.back() == nullptr) throw std::invalid_argument(name + ": no such situation; see truth_bench list");
    }
    if (!names.empty()) return found;
    for (const Situation& situation : situations()) found.push_back(&situation);
    return found;
}

void runInto(Json& report, const Situation& situation, Random& random) {
    try {
        report["rows"].push_back(runTrial(situation, random));
        std::puts(lineOf(report["rows"].back()).c_str());
    } catch (const NotHere& reason) {
        report["notHere"][situation.name] = reason.what();
        std::printf("%-22s not possible here: %s\n", situation.name.c_str(), reason.what());
    } catch (const Disturbed& reason) {
        report["disturbed"].push_back(situation.name);
        std::printf("%-22s not counted: %s\n", situation.name.c_str(), reason.what());
    }
    std::fflush(stdout);
}

// The repetitions take turns, so that what else the machine does disturbs all situations alike.
int run(const std::string& file, unsigned seed, int repetitions, const std::vector<std::string>& names) {
    Json report = {{"seed", seed},
                   {"repetitions", repetitions},
                   {"rows", Json::array()},
                   {"notHere", Json::object()},
                   {"disturbed", Json::array()}};
    Random random(seed);
    for (int i = 0; i < repetitions; ++i) {
        for (const Situation* const situation : situationsNamed(names)) {
            if (!report["notHere"].contains(situation->name)) runInto(report, *situation, random);
        }
        std::ofstream(file) << report.dump(1) << '\n';
    }
    return 0;
}

int printTable(const std::string& file) {
    std::fputs(tableOf(Json::parse(readText(file))).c_str(), stdout);
    return 0;
}

// --- one clear case as a test ---------------------------------------------------------------------------------------

// Whether pmenv and the engine say the same, with room for a machine that disturbs the trial itself: what counts is what
// the engine measured, and not what the situation is called.
bool agree(const Json& row) {
    if (row["told"].is_null()) return false;
    const double late = row["late"], told = row["told"];
    const bool near = std::abs(late - told) < 0.25;
    const bool clearlySpoiled = late > 3 * kSpoiled, clearlyClean = late < kSpoiled / 3;
    if (clearlySpoiled) return near && row["verdict"] == "spoiled";
    return near && !(clearlyClean && told > 3 * kSpoiled);
}

// A machine so busy that even a light sleeper was late most of the time is none to hold pmenv against the truth on.
bool machineTooBusy(const Json& row) {
    const Json& lateWakes = row["watcher"]["lateShare"];
    return row["verdict"] == "cannot tell" && lateWakes.is_number() && lateWakes > 0.1;
}

enum class Attempt { Agreed, Differed, Worthless };

Attempt attempt(const Situation& situation, Random& random) {
    try {
        const Json row = runTrial(situation, random);
        std::printf("%s\n    %s\n", lineOf(row).c_str(), row["reason"].get<std::string>().c_str());
        if (agree(row)) return Attempt::Agreed;
        return machineTooBusy(row) ? Attempt::Worthless : Attempt::Differed;
    } catch (const Disturbed& reason) {
        std::puts(reason.what());
        return Attempt::Worthless;
    }
}

int check(const std::string& name) {
    const Situation& situation = *situationsNamed({name})[0];
    Random random(std::random_device{}());
    bool differed = false;
    for (int i = 0; i < 3; ++i) {
        const Attempt result = attempt(situation, random);
        if (result == Attempt::Agreed) return 0;
        differed = differed || result == Attempt::Differed;
    }
    return differed ? 1 : kSkipped;
}

int list() {
    for (const Situation& situation : situations()) {
        std::printf("%-22s %s\n", situation.name.c_str(), situation.what.c_str());
    }
    return 0;
}

int dispatch(const std::vector<std::string>& arguments) {
    const std::string command = arguments.empty() ? "" : arguments[0];
    if (command == "run" && arguments.size() >= 4) {
        return run(arguments[1], static_cast<unsigned>(std::stoul(arguments[2])), std::stoi(arguments[3]),
                   {arguments.begin() + 4, arguments.end()});
    }
    if (command == "table" && arguments.size() == 2) return printTable(arguments[1]);
    if (command == "check" && arguments.size() == 2) return check(arguments[1]);
    if (command == "list") return list();
    std::fputs("usage: truth_bench run FILE SEED REPETITIONS [SITUATION...] | table FILE | check SITUATION | list\n",
               stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    catchInterruptions();
    try {
        return dispatch({argv + 1, argv + argc});
    } catch (const NotHere& reason) {
        std::printf("not possible here: %s\n", reason.what());
        return kSkipped;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "truth_bench: %s\n", error.what());
        return 1;
    }
}
