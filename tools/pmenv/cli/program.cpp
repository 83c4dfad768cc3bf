#include "program.h"

#include <algorithm>
#include <exception>

#include <fcntl.h>
#include <unistd.h>

#include "failure.h"
#include "output.h"

namespace {

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

}  // namespace

int runProgram(int argc, char** argv, const std::function<int(const std::vector<std::string>& words)>& run) {
    occupyStandardDescriptors();
    gatherOutput();
    try {
        const int exitCode = run(wordsOf(argc, argv));
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
