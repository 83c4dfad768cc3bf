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
const std::string kReserved = "/proc/sys/net/ipv4/ip_local_reserved_ports";

std::string sockstat(int used, int closed) {
    return "sockets: used 90\nTCP: inuse " + std::to_string(used) + " orphan 0 tw " + std::to_string(closed) +
           " alloc 9 mem 1\n";
}

std::string sockstat6(int used) { return "TCP6: inuse " + std::to_string(used) + "\nUDP6: inuse 1\n"; }

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
        return network.ports(pid).share;
    }

    // Lets each count of this process's connections take so long, and counts the counts.
    void slowDownCounts(const std::string& process, double seconds, int* counts) {
        kernel.before = [this, process, seconds, counts](const std::string& path) {
            if (path != process + "/net/tcp") return;
            ++*counts;
            kernel.now += seconds;
        };
    }

    FakeKernel kernel;
};

TEST_F(NetworkTest, FewSocketsAreNoSuspicion) {
    Network network;
    EXPECT_EQ(network.ports(kPid).share, 0.10);
    kernel.remove(kProcess + "/net/tcp");  // would be asked only on suspicion
    EXPECT_EQ(next(network), 0.10);
}

TEST_F(NetworkTest, OnSuspicionThePortsOfOneDestinationAreCounted) {
    kernel.write(kProcess + "/net/sockstat", sockstat(95, 100));
    kernel.write(kProcess + "/net/tcp", connections(99));
    Network network;
    EXPECT_NEAR(network.ports(kPid).share.value_or(0), 0.99, 1e-9);
    kernel.write(kProcess + "/net/tcp", connections(20));
    kernel.write(kProcess + "/net/tcp6", connections(60));
    EXPECT_NEAR(next(network).value_or(0), 0.60, 1e-9);
}

TEST_F(NetworkTest, TellsWhatCountingTookSinceTheLastAnswers) {
    kernel.cpu = 7;  // used before
    kernel.write(kProcess + "/net/sockstat", sockstat(95, 0));
    kernel.before = [this](const std::string& path) {
        if (path == kProcess + "/net/tcp") kernel.cpu += 0.030;
    };
    Network network;
    network.ports(kPid);
    EXPECT_NEAR(network.countingSeconds(), 0.030, 1e-9);
    network.refresh();
    EXPECT_EQ(network.countingSeconds(), 0);
}

TEST_F(NetworkTest, SuspicionBeginsAtHalfOfThePorts) {
    kernel.write(kProcess + "/net/sockstat", sockstat(49, 0));
    kernel.write(kProcess + "/net/tcp", connections(20));
    Network network;
    EXPECT_EQ(network.ports(kPid).share, 0.49);
    kernel.write(kProcess + "/net/sockstat", sockstat(50, 0));
    EXPECT_NEAR(next(network).value_or(0), 0.20, 1e-9);
}

// A runtime that opens sockets for both families has none of IPv4, and its 95 connections were no suspicion.
TEST_F(NetworkTest, SocketsOfBothFamiliesCount) {
    kernel.write(kProcess + "/net/sockstat6", sockstat6(30));
    Network network;
    EXPECT_EQ(network.ports(kPid).share, 0.40);
    kernel.write(kProcess + "/net/sockstat", sockstat(1, 0));
    kernel.write(kProcess + "/net/sockstat6", sockstat6(95));
    kernel.write(kProcess + "/net/tcp6", connections(95));
    EXPECT_NEAR(next(network).value_or(0), 0.95, 1e-9);
    kernel.write(kProcess + "/net/sockstat6", "TCP6: inuse x\n");
    EXPECT_FALSE(next(network));
}

TEST_F(NetworkTest, ReservedPortsAreGivenToNobody) {
    kernel.write(kReserved, "8080,40000-40049,40090-40099\n");
    const auto ports = Network().ports(kPid).ports;
    ASSERT_TRUE(ports);
    EXPECT_EQ(ports->limit, 40);
    EXPECT_EQ(ports->share(), 0.25);
    for (const char* const text : {"x\n", "1-65535\n"}) {
        kernel.write(kReserved, text);
        EXPECT_FALSE(Network().ports(kPid).share) << text;
    }
}

TEST_F(NetworkTest, PortsAreToldInNumbersToo) {
    Network network;
    const auto few = network.ports(kPid).ports;
    ASSERT_TRUE(few);
    EXPECT_EQ(few->used, 10);
    EXPECT_EQ(few->limit, 100);
    kernel.write(kProcess + "/net/sockstat", sockstat(95, 100));
    kernel.write(kProcess + "/net/tcp", connections(99));
    network.refresh();
    const auto counted = network.ports(kPid).ports;
    ASSERT_TRUE(counted);
    EXPECT_NEAR(counted->used, 99, 1e-9) << "those of one destination";
    EXPECT_EQ(counted->limit, 100);
}

TEST_F(NetworkTest, OneAnswerASecondServesAllEngines) {
    Network network;
    EXPECT_EQ(network.ports(kPid).share, 0.10);
    kernel.write(kProcess + "/net/sockstat", sockstat(20, 0));
    EXPECT_EQ(network.ports(kPid).share, 0.10);
    EXPECT_EQ(next(network), 0.20);
}

// For a hundred times as long as it took.
TEST_F(NetworkTest, ACountThatTookLongIsFollowedByAPause) {
    kernel.write(kProcess + "/net/sockstat", sockstat(95, 0));
    int counts = 0;
    slowDownCounts(kProcess, 1.0 / 32, &counts);
    Network network;
    const double begin = kernel.now;
    for (const auto& [times, countsThen] : {std::pair(0, 1), std::pair(99, 1), std::pair(100, 2)}) {
        kernel.now = begin + times / 32.0;
        next(network);
        EXPECT_EQ(counts, countsThen) << times;
    }
}

// A count took so long that in a run of five seconds nothing but the first one told how many ports were in use.
TEST_F(NetworkTest, BetweenCountsThatTakeLongTheSocketsTellHowManyThereAreNow) {
    kernel.write(kProcess + "/net/sockstat", sockstat(40, 40));
    kernel.write(kProcess + "/net/tcp", connections(40));
    int counts = 0;
    slowDownCounts(kProcess, 0.030, &counts);
    Network network;
    EXPECT_NEAR(network.ports(kPid).share.value_or(0), 0.40, 1e-9);
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

TEST_F(NetworkTest, ANamespaceThatMayNotBeSeenIsNotKnown) {
    kernel.hide(kProcess + "/ns");
    EXPECT_FALSE(Network().ports(kPid).share);
}

TEST_F(NetworkTest, WithoutItsOwnNamespaceNothingIsKnown) {
    kernel.hide("/proc/self/ns");
    EXPECT_FALSE(Network().ports(kPid).share);
    kernel.hide(kProcess + "/ns");
    EXPECT_FALSE(Network().ports(kPid).share) << "two unknown ones are not the same";
}

TEST_F(NetworkTest, StrangeFilesAreNotKnown) {
    for (const char* const text : {"", "TCP: inuse 5\n", "TCP: inuse x tw 1\n"}) {
        kernel.write(kProcess + "/net/sockstat", text);
        EXPECT_FALSE(Network().ports(kPid).share) << text;
    }
    kernel.write(kProcess + "/net/sockstat", sockstat(50, 50));
    for (const char* const text : {"", "40000\n", "5 1\n", "1 70000\n"}) {
        kernel.write(kRange, text);
        EXPECT_FALSE(Network().ports(kPid).share) << text;
    }
    kernel.write(kRange, "40000 40099\n");
    kernel.write(kProcess + "/net/tcp", "no title\n");
    EXPECT_FALSE(Network().ports(kPid).share) << "the other list alone tells nothing";
    kernel.write(kProcess + "/net/tcp", connections(40));
    kernel.remove(kProcess + "/net/tcp6");
    EXPECT_NEAR(Network().ports(kPid).share.value_or(0), 0.40, 1e-9) << "there need be no IPv6";
    for (const char* const file : {"/net/tcp", "/net/sockstat"}) {
        kernel.remove(kProcess + file);
        EXPECT_FALSE(Network().ports(kPid).share) << file;
    }
}

// --- elsewhere ------------------------------------------------------------------------------------------------------

// The range that can be read is that of this process's namespace, and not the engine's.
class NetworkElsewhereTest : public NetworkTest {
protected:
    NetworkElsewhereTest() {
        kernel.link(kElsewhere + "/ns/net", "net:[4026532999]");
        kernel.remove(kRange);
        kernel.write(kElsewhere + "/net/tcp6", connections(0));
    }

    PortUse with(int sockets, const std::string& tcp) {
        kernel.write(kElsewhere + "/net/sockstat", sockstat(sockets, 0));
        kernel.write(kElsewhere + "/net/tcp", tcp);
        return Network().ports(kPid + 1);
    }

    const std::string kElsewhere = "/proc/" + std::to_string(kPid + 1);
};

TEST_F(NetworkElsewhereTest, ManyPortsSideBySideMayBeAllThereAre) {
    const PortUse ports = with(400, connections(200));
    EXPECT_EQ(ports.share, 1);
    EXPECT_TRUE(ports.atMost);
    EXPECT_FALSE(ports.ports) << "how many there are is not known";
}

TEST_F(NetworkElsewhereTest, WherePortsBetweenAreFreeThereAreMore) {
    const PortUse ports = with(101, connections(50) + "  0: 0100007F:9CA3 0100007F:1F90 01 0:0\n");  // 40099
    EXPECT_NEAR(ports.share.value_or(0), 0.51, 1e-9);
    EXPECT_TRUE(ports.atMost);
    kernel.write(kElsewhere + "/net/tcp6", connections(60));
    EXPECT_EQ(Network().ports(kPid + 1).share, 1) << "also of IPv6";
    kernel.write(kElsewhere + "/net/sockstat6", sockstat6(101));
    EXPECT_EQ(with(1, connections(0)).share, 1) << "of IPv6 alone";
}

TEST_F(NetworkElsewhereTest, FewPortsAreNeverAllThereAre) {
    EXPECT_NEAR(with(15, "not asked for").share.value_or(0), 15.0 / 32, 1e-9);
    EXPECT_NEAR(with(50, connections(25)).share.value_or(0), 25.0 / 32, 1e-9);
    EXPECT_EQ(with(66, connections(33)).share, 1);
    EXPECT_EQ(with(30, connections(0)).share, 0);
    EXPECT_EQ(with(16, connections(0)).share, 0) << "counted from half of 32 on";
    EXPECT_EQ(with(0, connections(0)).share, 0);
}

TEST_F(NetworkElsewhereTest, EachNumberMayBeAPortOfItsRange) {
    for (const char* const port : {"0001", "FFFF"}) {
        const std::string line = std::string("  0: 0100007F:") + port + " 0100007F:1F90 01 0:0\n";
        EXPECT_NEAR(with(100, connections(0) + line).share.value_or(0), 1.0 / 32, 1e-9) << port;
    }
}

TEST_F(NetworkElsewhereTest, WhatCannotBeCountedIsNotKnown) {
    EXPECT_FALSE(with(400, "no title\n").share);
    kernel.remove(kElsewhere + "/net/sockstat");
    EXPECT_FALSE(Network().ports(kPid + 1).share);
}

TEST_F(NetworkElsewhereTest, EachNamespaceHasItsOwnAnswer) {
    with(400, connections(200));
    kernel.write(kRange, "40000\t40099\n");
    Network network;
    EXPECT_EQ(network.ports(kPid).share, 0.10);
    EXPECT_FALSE(network.ports(kPid).atMost);
    EXPECT_EQ(network.ports(kPid + 1).share, 1);
    EXPECT_EQ(network.ports(kPid).share, 0.10);
}

// All counts together are rationed: with more namespaces each is counted more seldom.
TEST_F(NetworkElsewhereTest, AllCountsTogetherAreRationed) {
    with(400, connections(200));
    kernel.link("/proc/4100002/ns/net", "net:[4026533000]");
    kernel.write("/proc/4100002/net/sockstat", sockstat(400, 0));
    kernel.write("/proc/4100002/net/tcp", connections(100));
    int counts = 0;
    slowDownCounts(kElsewhere, 0.010, &counts);
    Network network;
    const auto nextOfAll = [&] {
        network.refresh();
        network.ports(kPid + 2);
        return network.ports(kPid + 1).share;
    };
    EXPECT_EQ(nextOfAll(), 1);
    kernel.write(kElsewhere + "/net/tcp", connections(0));
    kernel.now += 1.9;
    EXPECT_EQ(nextOfAll(), 1);
    EXPECT_EQ(counts, 1);
    kernel.now += 0.2;
    EXPECT_EQ(nextOfAll(), 0);
    EXPECT_EQ(counts, 2);
}

// Between two counts the first few seconds of a test can use all ports up.
TEST_F(NetworkElsewhereTest, WhereThereAreEverMoreSocketsTheyAreCountedMoreOften) {
    with(100, connections(0));
    int counts = 0;
    slowDownCounts(kElsewhere, 0.030, &counts);
    Network network;
    const auto nextAfter = [&](double seconds, int sockets) {
        kernel.now += seconds;
        kernel.write(kElsewhere + "/net/sockstat", sockstat(sockets, 0));
        network.refresh();
        return network.ports(kPid + 1).share;
    };
    EXPECT_EQ(nextAfter(0, 100), 0);
    kernel.write(kElsewhere + "/net/tcp", connections(200));
    EXPECT_EQ(nextAfter(1, 109), 0);
    EXPECT_EQ(nextAfter(0, 112), 1);
    EXPECT_EQ(counts, 2);
    kernel.write(kElsewhere + "/net/tcp", connections(0));
    EXPECT_EQ(nextAfter(0.2, 200), 1);
    EXPECT_EQ(nextAfter(0.2, 200), 0);
    EXPECT_EQ(counts, 3);
}

// After ten times as long as a count took; a tenth more is not yet that.
TEST_F(NetworkElsewhereTest, InGrowthThePauseIsATenthOfTheOther) {
    with(20, connections(0));
    int counts = 0;
    slowDownCounts(kElsewhere, 1.0 / 32, &counts);
    Network network;
    const double begin = kernel.now;
    const auto countsAfter = [&](int times, int sockets) {
        kernel.now = begin + times / 32.0;
        kernel.write(kElsewhere + "/net/sockstat", sockstat(sockets, 0));
        next(network, kPid + 1);
        return counts;
    };
    EXPECT_EQ(countsAfter(0, 20), 1);
    EXPECT_EQ(countsAfter(9, 23), 1);
    EXPECT_EQ(countsAfter(20, 22), 1);
    EXPECT_EQ(countsAfter(20, 23), 2);
    EXPECT_EQ(countsAfter(29, 30), 2);
    EXPECT_EQ(countsAfter(30, 30), 3);
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

TEST(NetworkOfThisMachine, KnowsItsOwnPortsAndThoseElsewhereAtMost) {
    Network network;
    const auto own = network.ports(getpid()).share;
    ASSERT_TRUE(own);
    EXPECT_LE(*own, 1.5);
    const Elsewhere elsewhere;
    if (!elsewhere.isThere()) GTEST_SKIP() << "this system permits no network of one's own";
    const PortUse there = network.ports(elsewhere.pid());
    EXPECT_EQ(there.share, 0);
    EXPECT_TRUE(there.atMost);
}

}  // namespace
