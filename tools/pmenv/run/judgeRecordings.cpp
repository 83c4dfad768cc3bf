#include "judgeRecordings.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <limits>
#include <variant>
#include <vector>

#include <unistd.h>

#include "atomicFile.h"
#include "failure.h"
#include "judgeFormats.h"
#include "judgeLimits.h"
#include "judgement/findings.h"
#include "junit.h"
#include "output.h"
#include "recording/recording.h"
#include "table.h"
#include "units.h"

namespace {

// --- options --------------------------------------------------------------------------------------------------------

[[noreturn]] void refuse(const std::string& what) { throw Failure(what + "; see 'pmenv judge --help'", kExitUsage); }

// Whom and how long to watch was decided when the run was recorded.
void refuseOptionsOfWatches(const CommandLine& line) {
    for (const char* const option : {"duration", "engine", "pid", "ignore-thread", "record"}) {
        if (line.has(option)) refuse("--" + std::string(option) + " is for a watch, and a recording is judged here");
    }
    if (!line.program().empty()) refuse("a command is for a watch, and a recording is judged here");
    if (line.has("from") && line.has("skip")) refuse("--from and --skip do not go together: both say where to begin");
}

std::string toleranceText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%g ms", 1000 * seconds);
    return text;
}

// Turns are counted as late while the engines run, so that no other tolerance can be applied afterwards.
JudgeLimits limitsFor(const CommandLine& line, const std::string& file, const RecordingHeader& header) {
    JudgeLimits limits = judgeLimits(line, header.limits);
    limits.skip = line.number("from", limits.skip);
    if (limits.tolerance == header.limits.tolerance) return limits;
    throw Failure(file + " was recorded with a tolerance of " + toleranceText(header.limits.tolerance) +
                  ", by which late turns were counted; leave --tolerance out, or record the run again");
}

// --- judging --------------------------------------------------------------------------------------------------------

// A load generator: what became of its run.
struct Generator : JudgedRun {
    std::string file;
    bool complete = false;
};

Generator judgeFile(const CommandLine& line, const std::string& file) {
    RecordingReader reader(file);
    Generator generator;
    generator.file = file;
    generator.limits = limitsFor(line, file, reader.header());
    generator.context.host = reader.header().host;
    generator.context.start = reader.header().start;

    const double to = line.number("to", std::numeric_limits<double>::infinity());
    Judgement judgement(generator.limits);
    while (const auto item = reader.next()) {
        const auto* const evidence = std::get_if<Evidence>(&*item);
        if (evidence == nullptr || evidence->to > to) continue;
        judgement.add(*evidence);
        generator.context.missingNames = evidence->missingNames;
    }
    generator.judged = judgement.judged(!generator.context.missingNames.empty());
    generator.complete = reader.outcome() && reader.warnings().empty();
    if (reader.outcome() && !line.has("to")) generator.context.cpuSeconds = reader.outcome()->cpuSeconds;
    for (const std::string& warning : reader.warnings()) printWarning(warning);
    return generator;
}

int gravity(Outcome outcome) { return outcome == Outcome::Spoiled ? 2 : outcome == Outcome::CannotTell ? 1 : 0; }

bool isWorse(const Generator& left, const Generator& right) {
    const Judged &one = left.judged, &other = right.judged;
    if (one.outcome != other.outcome) return gravity(one.outcome) > gravity(other.outcome);
    return one.share.value_or(0) > other.share.value_or(0);
}

// --- showing --------------------------------------------------------------------------------------------------------

Json jsonOf(const Generator& generator) {
    Json json = judgeJson(generator.judged, generator.limits, generator.context);
    json["recording"] = {{"file", generator.file}, {"complete", generator.complete}};
    return json;
}

// The worst comes first, so that its verdict is the one on the whole run.
Json jsonOf(const std::vector<Generator>& generators) {
    Json list = Json::array();
    for (const Generator& generator : generators) list.push_back(jsonOf(generator));
    return Json{{"verdict", list[0]["verdict"]}, {"exitCode", list[0]["exitCode"]}, {"generators", list}};
}

std::string summary(const std::vector<Generator>& generators) {
    const Outcome worst = generators[0].judged.outcome;
    const auto count = std::count_if(generators.begin(), generators.end(),
                                     [worst](const Generator& each) { return each.judged.outcome == worst; });
    const std::string all = std::to_string(generators.size()) + " load generators";
    const std::string some = std::to_string(count) + " of " + all;
    switch (worst) {
        case Outcome::Clean:
            return "all " + all + " kept their schedule";
        case Outcome::Spoiled:
            return some + " spoiled the run";
        case Outcome::CannotTell:
            return "of " + some + " it cannot be told whether they kept their schedule";
    }
    return "";
}

std::string textOf(const std::vector<Generator>& generators, const Style& style) {
    Table table({{"VERDICT"}, {"HOST"}, {"ENGINES", true}, {"WATCHED", true}, {"RECORDING"}, {"REASON"}});
    for (const Generator& generator : generators) {
        const Judged& judged = generator.judged;
        table.add({outcomeText(judged.outcome), generator.context.host, std::to_string(judged.engines.size()),
                   secondsText(judged.seconds), generator.file, reasonText(judged, generator.limits)});
    }
    return verdictText(generators[0].judged.outcome, style) + ": " + summary(generators) + "\n\n" +
           table.text(style, std::nullopt);
}

void print(const CommandLine& line, const std::vector<Generator>& generators) {
    const Generator& first = generators[0];
    const Style style(STDOUT_FILENO);
    if (line.has("json")) {
        printJson(generators.size() == 1 ? jsonOf(first) : jsonOf(generators));
    } else if (generators.size() == 1) {
        std::cout << judgeText(first.judged, first.limits, first.context, style);
    } else {
        std::cout << textOf(generators, style);
    }
}

}  // namespace

int judgeRecordings(const CommandLine& line) {
    refuseOptionsOfWatches(line);
    std::vector<Generator> generators;
    for (const std::string& file : line.arguments()) generators.push_back(judgeFile(line, file));
    std::stable_sort(generators.begin(), generators.end(), isWorse);
    print(line, generators);
    if (line.has("junit")) replaceFile(fileOption(line, "junit"), junitXml({generators.begin(), generators.end()}));
    return judgeExitCode(generators[0].judged);
}
