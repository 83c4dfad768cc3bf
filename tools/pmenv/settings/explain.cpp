// explain: why a value is what it is.
#include <iostream>
#include <string>

#include <unistd.h>

#include "commandLine.h"
#include "explanation.h"
#include "explanationFormats.h"
#include "failure.h"
#include "krenv.h"
#include "nearest.h"
#include "settingsFile.h"

namespace {

void checkAsked(const CommandLine& line) {
    const bool hasName = !line.arguments().empty();
    if (hasName && line.has("text")) {
        throw Failure("NAME and --text do not go together; see 'pmenv explain --help'", kExitUsage);
    }
    if (!hasName && !line.has("text")) {
        throw Failure("'explain' needs NAME or --text; see 'pmenv explain --help'", kExitUsage);
    }
}

// Fills the run-time table as a host program would.
void setRunTimeValue(const std::string& assignment) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos) {
        throw Failure("--set needs NAME=VALUE, not '" + assignment + "'; see 'pmenv explain --help'", kExitUsage);
    }
    const std::string name = assignment.substr(0, equals);
    KREnvContainerClass env;
    if (env.KRESetEnvValue(name.c_str(), assignment.c_str() + equals + 1) != nullptr) return;
    throw Failure("--set " + name.substr(0, 60) +
                      ": the run-time table refuses it; it holds 1024 names, names and values of 255 characters",
                  kExitUsage);
}

Explanation explained(const CommandLine& line) {
    const ObservedSettings settings(settingsFile(line));
    return line.has("text") ? explainText(settings, line.text("text")) : explainSetting(settings, line.arguments()[0]);
}

void print(const Explanation& explanation) {
    const auto size = terminalSize();
    std::cout << explanationText(explanation, Style(STDOUT_FILENO), size ? std::optional(size->columns) : std::nullopt);
}

int run(const CommandLine& line) {
    checkAsked(line);
    for (const std::string& assignment : line.texts("set")) setRunTimeValue(assignment);
    const Explanation explanation = explained(line);
    const bool undefined = explanation.failure && explanation.failure->reason == ExplainedFailure::Reason::NotDefined;
    if (line.has("json")) {
        printJson(explanationJson(explanation));
    } else if (!undefined) {
        print(explanation);
    }
    if (undefined) {
        printError(explanation.file + ": " + explanation.name + ": " + failureText(*explanation.failure) +
                   didYouMean(explanation.root.nearest));
    }
    return explanation.failure ? kExitWrong : kExitDone;
}

}  // namespace

Command explainCommand() {
    return {"explain",
            "print where a value comes from, step by step",
            {{"NAME", "a setting; with its section in front where it has one: section.KEY", true}},
            {{"text", Option::Kind::Text, "TEXT",
              "explain how this text is expanded when it is read, instead of a setting"},
             {"set", Option::Kind::Text, "NAME=VALUE",
              "set a run-time value first, as a program does; may be given several times"}},
            "pmenv explain LOG_DIR                      a tree down to the sources, the final text last\n"
            "pmenv explain LOG_DIR --json               the same as data\n"
            "pmenv explain --text '$(HOME)/#(LOG_DIR)'  any text, quoted from the shell\n"
            "pmenv explain USERS --set USERS=50         as in a program that has set it",
            run};
}
