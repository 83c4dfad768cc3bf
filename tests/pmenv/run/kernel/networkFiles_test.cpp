// Connections: accepted and refused texts.
#include <string>

#include <gtest/gtest.h>

#include "kernel/networkFiles.h"

using namespace kernel;

namespace {

TEST(ParseTcpSockets, AddsClosedOnesThatWait) {
    EXPECT_EQ(parseTcpSockets("sockets: used 44\nTCP: inuse 5 orphan 1 tw 12 alloc 7 mem 1\nUDP: inuse 2 mem 0\n"),
              17u);
    for (const char* const row :
         {"", "TCP:\n", "TCP: inuse 5\n", "TCP: tw 5\n", "TCP: inuse x tw 1\n", "TCP6: inuse 5 tw 1\n"}) {
        EXPECT_FALSE(parseTcpSockets(row)) << row;
    }
}

TEST(ParseTcp6Sockets, HaveALineOfTheirOwn) {
    EXPECT_EQ(parseTcp6Sockets("TCP6: inuse 81\nUDP6: inuse 3\n"), 81u);
    for (const char* const text : {"", "TCP6:\n", "TCP6: inuse x\n", "TCP: inuse 5\n"}) {
        EXPECT_FALSE(parseTcp6Sockets(text)) << text;
    }
}

TEST(ParseReservedPorts, CountsThoseOfTheRange) {
    const PortRange range{40000, 40099};
    EXPECT_EQ(parseReservedPorts("\n", range), 0u);
    EXPECT_EQ(parseReservedPorts("8080,9000-9100,50000\n", range), 0u) << "others";
    EXPECT_EQ(parseReservedPorts("40000,40010-40019,40099\n", range), 12u);
    EXPECT_EQ(parseReservedPorts("39990-40009,40090-40110\n", range), 20u) << "the part inside";
    EXPECT_EQ(parseReservedPorts("1-65535\n", range), 100u);
    for (const char* const text : {"x\n", "5-x\n", "9-5\n", ",\n"})
        EXPECT_FALSE(parseReservedPorts(text, range)) << text;
}

TEST(ParsePortRange, CountsBothEnds) {
    const auto range = parsePortRange("32768\t60999\n");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->count(), 28232u);
    EXPECT_EQ(parsePortRange("5 5\n")->count(), 1u);
    EXPECT_EQ(parsePortRange("1 65535\n")->count(), 65535u);
    for (const char* const row : {"", "1", "9 5", "1 65536", "-1 5", "a b"}) EXPECT_FALSE(parsePortRange(row)) << row;
}

TEST(ParseMostPorts, CountsTheDestinationThatHasMost) {
    const std::string title = "  sl  local_address rem_address   st tx_queue rx_queue\n";
    const std::string lines =
        "   0: 0100007F:8000 0100007F:1F90 01 0:0\n"  // 32768, in the range
        "   1: 0100007F:8001 0100007F:1F90 06 0:0\n"
        "   2: 0100007F:8002 0200007F:1F90 01 0:0\n"  // another destination
        "   3: 0100007F:1F90 0100007F:8000 01 0:0\n"  // not a port of the range
        "   4: 0300007F:8000 0100007F:1F90 01 0:0\n"  // the same port of another address
        "   5: 00000000:0016 00000000:0000 0A 0:0\n";
    const auto countIn = [&title](const std::string& rows, const PortRange& range) {
        const auto most = parseMostPortsOfOneDestination(title + rows, range);
        return most ? std::optional(most->count) : std::nullopt;
    };
    EXPECT_EQ(countIn(lines, {32768, 60999}), 2u);
    EXPECT_EQ(countIn(lines, {32768, 32768}), 1u) << "both ends belong to the range";
    EXPECT_EQ(countIn(lines, {32769, 32769}), 1u);
    EXPECT_EQ(countIn("", {32768, 60999}), 0u);
    EXPECT_EQ(countIn("   0: 0100007F:80", {1, 65535}), 1u);  // cut
    EXPECT_EQ(countIn("   0: 0100007F\n:\n\n 5", {1, 65535}), 0u);
    EXPECT_FALSE(parseMostPortsOfOneDestination("", {1, 2}));
    EXPECT_FALSE(parseMostPortsOfOneDestination(lines, {1, 2}));
}

TEST(ParseMostPorts, TellsTheLowestAndTheHighestOfThem) {
    const auto most = parseMostPortsOfOneDestination(
        "  sl  local_address rem_address\n"
        "   0: 0100007F:9000 0100007F:1F90\n"
        "   1: 0100007F:8000 0100007F:1F90\n"
        "   2: 0100007F:A000 0100007F:1F90\n"
        "   3: 0100007F:0001 0200007F:1F90\n",
        {1, 65535});
    ASSERT_TRUE(most);
    EXPECT_EQ(most->count, 3u);
    EXPECT_EQ(most->lowest, 0x8000u);
    EXPECT_EQ(most->highest, 0xA000u);
}

TEST(ParseMostPorts, SocketsThatListenHaveNoDestination) {
    EXPECT_EQ(parseMostPortsOfOneDestination("  sl  local_address rem_address\n"
                                             "   0: 00000000:8000 00000000:0000\n"
                                             "   1: 00000000:8001 00000000:0000\n"
                                             "   2: 00000000:8002 :0000\n",
                                             {1, 65535})
                  ->count,
              0u);
}

TEST(ParseDroppedPackets, AddsTheProcessorsInHexadecimal) {
    EXPECT_EQ(parseDroppedPackets("0000272d 0000000a 00000000\n0000034d 00000001 0000003b\n"), 11u);
    for (const char* const row : {"", "0000272d\n", "0000272d xyz\n", "1 2\n\n"})
        EXPECT_FALSE(parseDroppedPackets(row)) << row;
}

TEST(ParseTcpSegments, FindsTheColumnsByTheirNames) {
    const auto segments = parseTcpSegments(
        "Ip: Forwarding DefaultTTL\nIp: 1 64\n"
        "Tcp: RtoAlgorithm MaxConn OutSegs RetransSegs InErrs\nTcp: 1 -1 5000 25 0\nUdp: A\nUdp: 1\n");
    ASSERT_TRUE(segments);
    EXPECT_EQ(segments->sent, 5000u);
    EXPECT_EQ(segments->sentAgain, 25u);
    for (const char* const row : {"", "Tcp: OutSegs RetransSegs\n", "Tcp: OutSegs\nTcp: 5\n",
                                  "Tcp: OutSegs RetransSegs\nTcp: 5\n", "Tcp: OutSegs RetransSegs\nTcp: -5 1\n"}) {
        EXPECT_FALSE(parseTcpSegments(row)) << row;
    }
}

}  // namespace
