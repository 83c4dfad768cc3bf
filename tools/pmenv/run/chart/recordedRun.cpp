#include "chart/recordedRun.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "chart/markup.h"
#include "isoTime.h"
#include "recording/recording.h"
#include "units.h"

namespace {

std::string joinedTexts(const std::vector<std::string>& texts, const char* between) {
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : between) + text;
    return all;
}

NamedTexts factsOf(const RecordingHeader& header, const std::string& file) {
    return {{"host", header.host},
            {"kernel", header.kernel},
            {"processors", std::to_string(header.processors)},
            {"memory", bytesText(header.memoryBytes)},
            {"watch began", isoTime(header.start)},
            {"recording", file},
            {"recorded by", "pmenv " + header.pmenv}};
}

NamedTexts optionsOf(const RecordingHeader& header) {
    const JudgeLimits& limits = header.limits;
    NamedTexts options{{"percentile", shortNumber(limits.percentile)},
                       {"tolerance", shortNumber(1000 * limits.tolerance) + " ms"}};
    const auto add = [&options](const char* name, const std::optional<double>& limit, const char* unit) {
        if (limit) options.emplace_back(name, shortNumber(*limit) + unit);
    };
    if (limits.skip > 0) options.emplace_back("left out at the beginning", secondsText(limits.skip));
    if (limits.engines) options.emplace_back("engines", std::to_string(*limits.engines));
    add("limit on the machine's processors", limits.machinePercent, " %");
    add("limit on one engine", limits.enginePercent, " % of one processor");
    if (limits.machinePercent || limits.enginePercent)
        options.emplace_back("sustained for", secondsText(limits.sustain));
    add("available memory at least", limits.memoryPercent, " %");
    add("growth of swap at most", limits.swapMegabytes, " MiB");
    if (!header.choice.names.empty()) options.emplace_back("engines by name", joinedTexts(header.choice.names, ", "));
    if (header.choice.pid) options.emplace_back("engines by process id", std::to_string(*header.choice.pid));
    if (!header.ignored.empty()) options.emplace_back("ignored threads", joinedTexts(header.ignored, ", "));
    if (!header.command.empty()) options.emplace_back("command", joinedTexts(header.command, " "));
    return options;
}

}  // namespace

ChartRun readRecordedRun(const std::string& file) {
    RecordingReader reader(file);
    const RecordingHeader& header = reader.header();
    ChartRun run(header.limits);
    run.host = header.host;
    run.start = header.start;
    run.facts = factsOf(header, file);
    run.options = optionsOf(header);

    Judgement judgement(header.limits);
    std::vector<std::string> missingNames;
    while (auto item = reader.next()) {
        if (auto* const mark = std::get_if<Mark>(&*item)) {
            run.marks.push_back(std::move(*mark));
            continue;
        }
        const Evidence& evidence = std::get<Evidence>(*item);
        judgement.add(evidence);
        run.figures.add(evidence);
        run.seconds = std::max(run.seconds, evidence.to);
        missingNames = evidence.missingNames;
    }
    run.judged = judgement.judged(!missingNames.empty());
    run.judgedFrom = run.judged.from;
    run.remarks = reader.warnings();
    for (const std::string& name : missingNames) run.remarks.push_back("no process named '" + name + "' was seen");
    return run;
}
