// pmenv - the command-line tool of the environment support library.
//
// It opens no main scope, so that the library neither searches for settings nor logs by itself.
#include <iostream>

#include "CommandLineArguments.h"
#include "commands.h"
#include "failure.h"
#include "help.h"
#include "libraryLog.h"
#include "program.h"

namespace {

int printHelp(const CommandLine& line) {
    const Command* const command = line.command();
    std::cout << (command != nullptr ? commandHelp(pmenvGrammar(), *command)
                                     : overviewHelp(pmenvGrammar(), line.group()));
    return kExitDone;
}

int printVersion() {
    std::cout << "pmenv " PMENV_VERSION "\n";
    return kExitDone;
}

int run(const CommandLine& line) {
    if (line.asksForHelp()) return printHelp(line);
    if (line.asksForVersion()) return printVersion();
    return line.command()->run(line);
}

}  // namespace

int main(int argc, char** argv) {
    nCommandLineArguments::gSet(argc, argv);
    showLibraryLog();
    return runProgram(argc, argv, [](const auto& words) { return run(CommandLine::parse(pmenvGrammar(), words)); });
}
