#include "options.h"

#include <algorithm>

#include "failure.h"
#include "judgement/judgement.h"

namespace {

// Outside the ports that are given to exporters by number, and those from which systems choose local ports.
constexpr char kDefaultAddress[] = "127.0.0.1:19815";

std::vector<Option> options() {
    constexpr Option::Kind kText = Option::Kind::Text, kNumber = Option::Kind::Number, kFlag = Option::Kind::Flag;
    return {
        {"listen", kText, "ADDRESS:PORT",
         "where requests are answered; 127.0.0.1:19815 unless given, or systemd's socket"},
        {"engine", kText, "NAME", "also watch programs of this command name or file name; may be given several times"},
        {"engines", kNumber, "N", "number of engines that are to run", 1, 1e9, true},
        {"ignore-thread", kText, "NAME", "ignore threads of this name, which send no load; may be given several times"},
        {"tolerance", kNumber, "MS", "milliseconds by which a request may be late; 10 unless given", 1, 60000},
        {"machine", kFlag, nullptr, "also the machine's figures, which other exporters have too"},
    };
}

}  // namespace

Grammar exporterGrammar(int (*run)(const CommandLine&)) {
    Grammar grammar;
    grammar.globalOptions = {
        {"help", Option::Kind::Flag, nullptr, "print help and exit; also -h"},
        {"version", Option::Kind::Flag, nullptr, "print the version and exit"},
    };
    grammar.commands.push_back(
        {"pmenv-exporter",
         "serve figures of this host's load engines to a metrics collector",
         {},
         options(),
         "pmenv-exporter                              at 127.0.0.1:19815, for a proxy or a tunnel\n"
         "pmenv-exporter --listen 10.1.2.3:19815      for a collector on another host\n"
         "pmenv-exporter --engine wrk --engines 4     four engines of another program are to run",
         run});
    return grammar;
}

ExporterOptions exporterOptions(const CommandLine& line) {
    ExporterOptions options;
    options.listen = line.text("listen", kDefaultAddress);
    options.choice.names = line.texts("engine");
    const auto& names = options.choice.names;
    if (std::find(names.begin(), names.end(), "") != names.end()) {
        throw Failure("--engine needs a name; see 'pmenv-exporter --help'", kExitUsage);
    }
    options.ignored = line.texts("ignore-thread");
    options.tolerance = line.has("tolerance") ? line.number("tolerance", 0) / 1000 : JudgeLimits{}.tolerance;
    options.parts.perProcess = true;  // the worst engine decides, so each is told
    options.parts.machine = line.has("machine");
    if (line.has("engines")) options.parts.expected = static_cast<std::size_t>(line.number("engines", 0));
    return options;
}
