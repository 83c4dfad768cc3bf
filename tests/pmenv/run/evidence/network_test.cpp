// Local ports in use: counted where the engine's are those that pmenv sees, and not known elsewhere.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include "evidence/network.h"
#include "support/FakeKernel.h"

namespace {

const std::string kRange = "/proc/sys/net/ipv4/ip_local_port_range";

std::string sockstat(int used, int closed) {
    return "sockets: used 90\nTCP: inuse " + std::to_string(used) + " orphan 0 tw " + std::to_string(closed) +
           " alloc 9 mem 1\n";
}

// So many connections to one destination, from port 40000 on.
std::string connections(int count, const std::string& destination = "0100007F:1F90") {
    std::string text = "  sl  local_address rem_address   st tx_queue rx_queue\n";
    for (int i = 0; i < count; ++i) {
        char line[80];
        std::snprintf(line, sizeof line, "%4d: 0100007F:%04X %s 01 0:0\n", i, 40000 + i, destination.c_str());
        text += line;
    }
    return text;
}

class NetworkTest : public testing::Test {
protected:
    NetworkTest() {
        kernel.link("/proc/self/ns/net", "net:[4026531840]");
        kernel.link(kProcess + "/ns/net", "net:[4026531840]");
        kernel.write(kRange, "40000\t40099\n");
        kernel.write(kProcess + "/net/sockstat", sockstat(7, 3));
        kernel.write(kProcess + "/net/tcp", connections(0));
        kernel.write(kProcess + "/net/tcp6", connections(0));
    }

    static std::optional<double> next(Network& network, int pid = kPid) {
        network.refresh();
        return network.portShare(pid);
    }

    FakeKernel kernel;
};

TEST_F(NetworkTest, FewSocketsAreNoSuspicion) {
    Network network;
    EXPECT_EQ(network.portShare(kPid), 0.10);
    kernel.remove(kProcess + "/net/tcp");  // would be asked only on suspicion
    EXPECT_EQ(next(network), 0.10);
}

TEST_F(NetworkTest, OnSuspicionThePortsOfOneDestinationAreCounted) {
    kernel.write(kProcess + "/net/sockstat", sockstat(95, 100));
    kernel.write(kProcess + "/net/tcp", connections(99));
    Network network;
    EXPECT_NEAR(network.portShare(kPid).value_or(0), 0.99, 1e-9);
    kernel.write(kProcess + "/net/tcp", connections(20));
    kernel.write(kProcess + "/net/tcp6", connections(60));
    EXPECT_NEAR(next(network).value_or(0), 0.60, 1e-9);
}

TEST_F(NetworkTest, OneAnswerASecondServesAllEngines) {
    Network network;
    EXPECT_EQ(network.portShare(kPid), 0.10);
    kernel.write(kProcess + "/net/sockstat", sockstat(20, 0));
    EXPECT_EQ(network.portShare(kPid), 0.10);
    EXPECT_EQ(next(network), 0.20);
}

// A count took so long that in a run of five seconds nothing but the first one told how many ports were in use.
TEST_F(NetworkTest, BetweenCountsThatTakeLongTheSocketsTellHowManyThereAreNow) {
    kernel.write(kProcess + "/net/sockstat", sockstat(40, 40));
    kernel.write(kProcess + "/net/tcp", connections(40));
    int counts = 0;
    kernel.before = [this, &counts](const std::string& path) {
        if (path != kProcess + "/net/tcp") return;
        ++counts;
        kernel.now += 0.030;
    };
    Network network;
    EXPECT_NEAR(network.portShare(kPid).value_or(0), 0.40, 1e-9);
    kernel.now += 1;
    kernel.write(kProcess + "/net/sockstat", sockstat(99, 99));
    kernel.write(kProcess + "/net/tcp", connections(97));
    EXPECT_NEAR(next(network).value_or(0), 0.99, 1e-9);
    kernel.write(kProcess + "/net/sockstat", sockstat(150, 150));
    EXPECT_EQ(next(network), 1);
    EXPECT_EQ(counts, 1);
    kernel.now += 2.5;
    kernel.write(kProcess + "/net/sockstat", sockstat(97, 97));
    EXPECT_NEAR(next(network).value_or(0), 0.97, 1e-9);
    EXPECT_EQ(counts, 2);
}

// --- what cannot be told --------------------------------------------------------------------------------------------

// The range that can be read is that of this process's namespace, and not the engine's.
TEST_F(NetworkTest, PortsOfAnotherNamespaceAreNotKnown) {
    kernel.remove(kProcess + "/ns/net");
    kernel.link(kProcess + "/ns/net", "net:[4026532999]");
    kernel.write(kProcess + "/net/sockstat", sockstat(100, 100));
    EXPECT_FALSE(Network().portShare(kPid));
}

TEST_F(NetworkTest, AnotherEnginesAnswerIsNotGivenForOneElsewhere) {
    kernel.link("/proc/4100001/ns/net", "net:[4026532999]");
    Network network;
    EXPECT_EQ(network.portShare(kPid), 0.10);
    EXPECT_FALSE(network.portShare(kPid + 1));
    EXPECT_EQ(network.portShare(kPid), 0.10);
}

TEST_F(NetworkTest, ANamespaceThatMayNotBeSeenIsNotKnown) {
    kernel.hide(kProcess + "/ns");
    EXPECT_FALSE(Network().portShare(kPid));
}

TEST_F(NetworkTest, WithoutItsOwnNamespaceNothingIsKnown) {
    kernel.hide("/proc/self/ns");
    EXPECT_FALSE(Network().portShare(kPid));
    kernel.hide(kProcess + "/ns");
    EXPECT_FALSE(Network().portShare(kPid)) << "two unknown ones are not the same";
}

TEST_F(NetworkTest, StrangeFilesAreNotKnown) {
    for (const char* const text : {"", "TCP: inuse 5\n", "TCP: inuse x tw 1\n"}) {
        kernel.write(kProcess + "/net/sockstat", text);
        EXPECT_FALSE(Network().portShare(kPid)) << text;
    }
    kernel.write(kProcess + "/net/sockstat", sockstat(50, 50));
    for (const char* const text : {"", "40000\n", "5 1\n", "1 70000\n"}) {
        kernel.write(kRange, text);
        EXPECT_FALSE(Network().portShare(kPid)) << text;
    }
    kernel.write(kRange, "40000 40099\n");
    kernel.write(kProcess + "/net/tcp", "no title\n");
    EXPECT_FALSE(Network().portShare(kPid)) << "the other list alone tells nothing";
    kernel.write(kProcess + "/net/tcp", connections(40));
    kernel.remove(kProcess + "/net/tcp6");
    EXPECT_NEAR(Network().portShare(kPid).value_or(0), 0.40, 1e-9) << "there need be no IPv6";
    for (const char* const file : {"/net/tcp", "/net/sockstat"}) {
        kernel.remove(kProcess + file);
        EXPECT_FALSE(Network().portShare(kPid)) << file;
    }
}

// --- on this machine ------------------------------------------------------------------------------------------------

// A process that has entered a network of its own.
class Elsewhere {
public:
    Elsewhere() {
        int ready[2];
        if (pipe(ready) != 0) return;
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const bool entered = unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
            const char answer = entered ? 'y' : 'n';
            if (write(ready[1], &answer, 1) == 1) pause();
            _exit(0);
        }
        close(ready[1]);
        char answer = 'n';
        isThere_ = read(ready[0], &answer, 1) == 1 && answer == 'y';
        close(ready[0]);
    }
    ~Elsewhere() {
        if (child_ <= 0) return;
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    bool isThere() const { return isThere_; }
    int pid() const { return child_; }

private:
    pid_t child_ = -1;
    bool isThere_ = false;
};

TEST(NetworkOfThisMachine, KnowsItsOwnPortsAndNotThoseElsewhere) {
    Network network;
    const auto own = network.portShare(getpid());
    ASSERT_TRUE(own);
    EXPECT_LE(*own, 1.5);
    const Elsewhere elsewhere;
    if (!elsewhere.isThere()) GTEST_SKIP() << "this system permits no network of one's own";
    EXPECT_FALSE(network.portShare(elsewhere.pid()));
}

}  // namespace
