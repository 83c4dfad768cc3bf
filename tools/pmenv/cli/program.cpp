#include "program.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "CommandLineArguments.h"
#include "failure.h"
#include "help.h"
#include "libraryLog.h"
#include "output.h"

namespace {

int printHelp(const Grammar& grammar, const CommandLine& line) {
    const Command* const command = line.command();
    std::cout << (command != nullptr ? commandHelp(grammar, *command) : overviewHelp(grammar, line.group()));
    return kExitDone;
}

int printVersion(const Grammar& grammar) {
    const Command* const program = programOf(grammar);
    std::cout << (program != nullptr ? program->name : "pmenv") << " " PMENV_VERSION "\n";
    return kExitDone;
}

// The arguments after the program's name, which a caller may omit.
std::vector<std::string> wordsOf(int argc, char** argv) { return {argv + std::min(argc, 1), argv + argc}; }

// A standard descriptor that the caller has closed must not become that of a file, which would then receive messages.
// Reading and writing fail as before, and a program that this one starts finds it closed.
void occupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) >= 0) continue;
        open("/dev/null", (descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
    }
}

int run(const Grammar& grammar, const CommandLine& line) {
    if (line.asksForHelp()) return printHelp(grammar, line);
    if (line.asksForVersion()) return printVersion(grammar);
    return line.command()->run(line);
}

}  // namespace

std::vector<Option> globalOptions() {
    constexpr Option::Kind kFlag = Option::Kind::Flag;
    return {
        {"ini", Option::Kind::File, "FILE|DIR",
         "read the settings from FILE or from DIR/pressmark.ini and nowhere else"},
        {"json", kFlag, nullptr, "print the answer as JSON"},
        {"help", kFlag, nullptr, "print help and exit; also -h"},
        {"version", kFlag, nullptr, "print the version and exit"},
    };
}

int runCommandLine(const Grammar& grammar, int argc, char** argv) {
    occupyStandardDescriptors();
    if (const Command* const program = programOf(grammar)) nameProgram(program->name);
    nCommandLineArguments::gSet(argc, argv);
    showLibraryLog();
    gatherOutput();
    try {
        const int exitCode = run(grammar, CommandLine::parse(grammar, wordsOf(argc, argv)));
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
