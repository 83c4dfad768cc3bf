// Where requests arrive: an address of its own, or a socket of systemd's.
#include <cstdlib>
#include <functional>
#include <string>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failure.h"
#include "listener.h"
#include "support/OpenDescriptors.h"
#include "support/TempDir.h"

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

int exitCodeFor(const std::string& address) {
    try {
        const Listener listener(address);
    } catch (const Failure& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("--listen"));
        return failure.exitCode();
    }
    return 0;
}

TEST(ListenerTest, ListensAtTheAddress) {
    const Listener listener("127.0.0.1:0");
    EXPECT_THAT(listener.address(), MatchesRegex("127\\.0\\.0\\.1:[1-9][0-9]*"));
}

TEST(ListenerTest, ListensAtAnAddressOfVersionSix) {
    if (access("/proc/net/if_inet6", F_OK) != 0) GTEST_SKIP() << "this machine has no IPv6";
    const Listener listener("[::1]:0");
    EXPECT_THAT(listener.address(), MatchesRegex("\\[::1\\]:[1-9][0-9]*"));
}

TEST(ListenerTest, WhatIsNoAddressIsWrongUsage) {
    for (const char* const address :
         {"", ":", "127.0.0.1", "127.0.0.1:", ":19815", "127.0.0.1:65536", "127.0.0.1:99999999999999", "127.0.0.1:-1",
          "127.0.0.1:http", "127.0.0.1:1 ", "::1:19815", "[::1]", "[]:1", "localhost:19815", "999.0.0.1:1",
          "[127.0.0.1]x:1"}) {
        EXPECT_EQ(exitCodeFor(address), kExitUsage) << address;
    }
}

TEST(ListenerTest, AnAddressThatIsTakenOrNotOurOwnIsToldAndNothingStaysOpen) {
    const Listener first("127.0.0.1:0");
    const OpenDescriptors descriptors;
    EXPECT_EQ(exitCodeFor(first.address()), kExitWrong);
    EXPECT_EQ(exitCodeFor("192.0.2.1:1"), kExitWrong);
    EXPECT_THAT(descriptors.addedTargets(), testing::IsEmpty());
}

// --- handed over ----------------------------------------------------------------------------------------------------

int listeningSocket() {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(listen(descriptor, 5), 0);  // at any port
    return descriptor;
}

// Runs `check` in a process that was given the descriptor by systemd, with so many as it says. True when it says so.
bool handedOver(int descriptor, const char* count, const std::function<bool()>& check) {
    const pid_t child = fork();
    if (child == 0) {
        dup2(descriptor, 3);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        if (count != nullptr) setenv("LISTEN_FDS", count, 1);
        _exit(Listener::isHandedOver() && check() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool isRefused() {
    try {
        Listener::handedOver();
    } catch (const Failure& failure) {
        return failure.exitCode() == kExitWrong && std::string(failure.what()).find("systemd") != std::string::npos;
    }
    return false;
}

TEST(ListenerTest, SystemdsSocketIsTakenAndItsVariablesGo) {
    EXPECT_TRUE(handedOver(listeningSocket(), "1", [] {
        const Listener listener = Listener::handedOver();
        return listener.descriptor() == 3 && listener.address().find("0.0.0.0:") == 0 && !Listener::isHandedOver() &&
               getenv("LISTEN_FDS") == nullptr && (fcntl(3, F_GETFD) & FD_CLOEXEC) != 0;
    }));
}

TEST(ListenerTest, ALocalSocketIsToldByItsPath) {
    const TempDir directory;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = directory / "socket";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(descriptor, 5), 0);
    EXPECT_TRUE(handedOver(descriptor, "1", [&] { return Listener::handedOver().address() == path; }));
    close(descriptor);
}

TEST(ListenerTest, OtherSocketsOfSystemdAreRefused) {
    for (const char* const count : {"0", "2", "", "x", static_cast<const char*>(nullptr)}) {
        EXPECT_TRUE(handedOver(listeningSocket(), count, isRefused)) << (count != nullptr ? count : "none");
    }
    EXPECT_TRUE(handedOver(socket(AF_INET, SOCK_STREAM, 0), "1", isRefused)) << "it does not listen";
    EXPECT_TRUE(handedOver(socket(AF_INET, SOCK_DGRAM, 0), "1", isRefused));
    EXPECT_TRUE(handedOver(STDIN_FILENO, "1", isRefused)) << "no socket";
}

TEST(ListenerTest, ASocketForAnotherProcessIsNotTaken) {
    EXPECT_FALSE(handedOver(listeningSocket(), "1", [] {
        setenv("LISTEN_PID", std::to_string(getppid()).c_str(), 1);
        return Listener::isHandedOver();
    }));
}

}  // namespace
