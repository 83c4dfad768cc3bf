// find: the first existing file in the directories of path variables.
#include <iostream>

#include "commandLine.h"
#include "failure.h"
#include "knownKeys/knownSecrets.h"
#include "output.h"
#include "paths.h"
#include "search.h"

namespace {

int runFind(const CommandLine& line) {
    const std::string name = checkedPath(line.arguments()[0]);
    const std::vector<std::string> variables(line.arguments().begin() + 1, line.arguments().end());
    const auto settings = settingsFor(line, variables, secretsFor);
    const SearchResult result = searchFile(name, variables, settings.get());

    if (line.has("json")) {
        printJson({{"file", name},
                   {"path", result.path ? Json(*result.path) : Json()},
                   {"variable", result.path ? Json(result.variable) : Json()},
                   {"tried", result.path ? Json::array() : placesJson(result.places)}});
    } else if (result.path) {
        std::cout << *result.path << "\n";
    }
    if (result.path) return kExitDone;
    printError(name + ": not found; looked in" + placesText(result.places));
    return kExitWrong;
}

}  // namespace

Command findCommand() {
    return {"find",
            "print the first existing FILE in the directories that the variables stand for",
            {{"FILE", "the name of the file; of a path only the last component is used", false, false, Offer::Files},
             pathVariableArgument(true)},
            {},
            "pmenv find engine.cfg . '$KR_BIN' '#INCLUDE_PATH' HOME\n"
            "pmenv find sh PATH        prints /usr/bin/sh",
            runFind,
            "The variables are tried in order. When there is no such file, the message lists every place that was "
            "tried, and what was wrong with it."};
}
