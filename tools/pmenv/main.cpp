// pmenv - the command-line tool of the environment support library.
//
// It opens no main scope, so that the library neither searches for settings nor logs by itself.
#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "CommandLineArguments.h"
#include "commands.h"
#include "failure.h"
#include "help.h"
#include "libraryLog.h"
#include "output.h"

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

// The arguments after the program's name, which a caller may omit.
std::vector<std::string> wordsOf(int argc, char** argv) { return {argv + std::min(argc, 1), argv + argc}; }

int run(const CommandLine& line) {
    if (line.asksForHelp()) return printHelp(line);
    if (line.asksForVersion()) return printVersion();
    return line.command()->run(line);
}

}  // namespace

int main(int argc, char** argv) {
    nCommandLineArguments::gSet(argc, argv);
    showLibraryLog();
    gatherOutput();
    try {
        const int exitCode = run(CommandLine::parse(pmenvGrammar(), wordsOf(argc, argv)));
        finishOutput();
        return exitCode;
    } catch (const Failure& failure) {
        printError(failure.what());
        return failure.exitCode();
    } catch (const std::exception& error) {
        printError(std::string("stopped by an unexpected error: ") + error.what());
        return kExitWrong;
    }
}
