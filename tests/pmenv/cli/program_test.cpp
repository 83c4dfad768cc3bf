// program: from the start of a command line program to its end.
#include <cerrno>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "program.h"
#include "support/InChild.h"

namespace {

bool isClosedFor(ssize_t transferred) { return transferred < 0 && errno == EBADF; }

// A file that the command opens gets a descriptor behind these three, which are as useless to it as closed ones, and
// closed in a program that it starts.
int openAFile(const CommandLine& /*line*/) {
    if (open("/dev/null", O_RDONLY | O_CLOEXEC) <= STDERR_FILENO) return 10;
    char character = 'x';
    if (!isClosedFor(read(STDIN_FILENO, &character, 1))) return 11;
    if (!isClosedFor(write(STDOUT_FILENO, &character, 1))) return 12;
    if (!isClosedFor(write(STDERR_FILENO, &character, 1))) return 13;
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) return 14;
    }
    return 0;
}

int nextDescriptor() {
    const int next = dup(STDERR_FILENO);
    close(next);
    return next;
}

int tellTheNext(const CommandLine& /*line*/) { return nextDescriptor(); }

std::string exitCodeOf(const char* command) {
    const Grammar grammar{globalOptions(),
                          {{"open", "", {}, {}, "", openAFile}, {"tell", "", {}, {}, "", tellTheNext}}};
    std::string words[] = {"pmenv", command};
    char* arguments[] = {words[0].data(), words[1].data(), nullptr};
    return std::to_string(runCommandLine(grammar, 2, arguments));
}

TEST(Program, NoFileTakesThePlaceOfAClosedStandardDescriptor) {
    EXPECT_EQ(inChild([] {
                  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(descriptor);
                  return exitCodeOf("open");
              }),
              "0");
}

TEST(Program, OpensNothingWhereAllStandardDescriptorsAreThere) {
    EXPECT_EQ(inChild([] {
                  const std::string next = std::to_string(nextDescriptor());
                  const std::string found = exitCodeOf("tell");
                  return found == next ? "the same" : found + " instead of " + next;
              }),
              "the same");
}

}  // namespace
