// resolve: what a path variable stands for.
#include <iostream>

#include "commandLine.h"
#include "failure.h"
#include "output.h"
#include "paths.h"
#include "search.h"

namespace {

int runResolve(const CommandLine& line) {
    const std::string variable = line.arguments()[0];
    const auto settings = settingsFor(line, {variable});
    const Resolution resolution = resolveVariable(variable, settings.get());

    if (line.has("json")) {
        printJson({{"variable", variable},
                   {"value", resolution.value ? Json(*resolution.value) : Json()},
                   {"directories", placesJson(resolution.places)}});
    } else if (resolution.value) {
        std::cout << *resolution.value << "\n";
    }
    if (resolution.value) return kExitDone;
    printError("'" + variable + "' stands for nothing: " + resolution.places[0].problem);
    return kExitWrong;
}

}  // namespace

Command resolveCommand() {
    return {"resolve",
            "print what a path variable stands for",
            {pathVariableArgument(false)},
            {},
            "pmenv resolve '$KR_BIN'            prints the environment variable KR_BIN\n"
            "pmenv resolve '#INCLUDE_PATH'      prints the setting, expanded\n"
            "pmenv resolve PATH --json          shows what is wrong with each directory",
            runResolve,
            "With --json the answer also says what is wrong with each of its directories."};
}
