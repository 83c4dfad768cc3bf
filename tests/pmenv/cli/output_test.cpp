// output: how standard output is written, and what is noticed when it cannot be.
#include <csignal>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "failure.h"
#include "output.h"
#include "support/InChild.h"
#include "support/TempDir.h"

namespace {

TEST(Output, IsWrittenInLargePieces) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    EXPECT_EQ(inChild([&] {
                  dup2(ends[1], STDOUT_FILENO);
                  gatherOutput();
                  std::cout << "one\n" << 'x' << "two\n";
                  finishOutput();
                  return std::string("done");
              }),
              "done");
    close(ends[1]);
    char piece[64];
    const ssize_t length = read(ends[0], piece, sizeof piece);
    EXPECT_EQ(std::string(piece, length > 0 ? static_cast<std::size_t>(length) : 0), "one\nxtwo\n");
    close(ends[0]);
}

TEST(Output, IsSeenOnATerminalAtOnce) {
    EXPECT_EQ(inChild([] {
                  int controller = -1, terminal = -1;
                  if (openpty(&controller, &terminal, nullptr, nullptr, nullptr) != 0)
                      return std::string("no terminal");
                  dup2(terminal, STDOUT_FILENO);
                  gatherOutput();
                  std::cout << "one";
                  pollfd seen{controller, POLLIN, 0};
                  return std::string(poll(&seen, 1, 10'000) == 1 ? "seen" : "kept back");
              }),
              "seen");
}

TEST(Output, ThatIsWrittenOnlyInPartIsAFailure) {
    const TempDir directory;
    const std::string file = directory / "out";
    EXPECT_EQ(inChild([&] {
                  std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit three{3, 3};
                  setrlimit(RLIMIT_FSIZE, &three);
                  dup2(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDOUT_FILENO);
                  gatherOutput();
                  std::cout << "longer";
                  try {
                      finishOutput();
                      return std::string("written");
                  } catch (const Failure& failure) {
                      return std::string(failure.what());
                  }
              }),
              "cannot write the result to standard output: File too large");
    EXPECT_EQ(readFileText(file), "lon");
}

}  // namespace
