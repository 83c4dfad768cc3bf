// Facts about the host, and the start-up report that is made of them.
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "krenv.h"
#include "krenvState.h"
#include "support/InChild.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// --- the C library's border -----------------------------------------------------------------------------------------

namespace {

// What stands in for the C library; where a function is empty, the real one answers.
struct Border {
    std::function<std::string(const std::string&)> command;  // the shell command that is run instead; "" fails
    const char* opened = nullptr;                            // the file that is opened instead of any pipe
    std::function<int(char*, std::size_t)> hostName;
    std::function<hostent*(const char*)> resolve;
    std::function<int(ifaddrs**)> interfaces;
    std::function<int(utsname*)> names;

    std::vector<std::string> commandsRun;
    std::vector<int> piecesRead;  // the sizes that fgets was given
    int pipesClosed = 0;
    int listsFreed = 0;
};
Border* border = nullptr;

class HostFacts : public testing::Test {
protected:
    HostFacts() { border = &fake; }
    ~HostFacts() override { border = nullptr; }
    Border fake;
};
using Exec = HostFacts;
using KRPGetMachineNameTest = HostFacts;

}  // namespace

extern "C" {
std::FILE* __real_popen(const char* command, const char* mode);
std::FILE* __wrap_popen(const char* command, const char* mode) {
    EXPECT_STREQ("r", mode);
    if (border == nullptr) return __real_popen(command, mode);
    border->commandsRun.emplace_back(command);
    if (border->opened != nullptr) return std::fopen(border->opened, "r");
    if (!border->command) return __real_popen(command, mode);
    const std::string instead = border->command(command);
    return instead.empty() ? nullptr : __real_popen(instead.c_str(), mode);
}
int __real_pclose(std::FILE* pipe);
int __wrap_pclose(std::FILE* pipe) {
    if (border != nullptr) ++border->pipesClosed;
    return border != nullptr && border->opened != nullptr ? std::fclose(pipe) : __real_pclose(pipe);
}
char* __real_fgets(char* text, int size, std::FILE* file);
char* __wrap_fgets(char* text, int size, std::FILE* file) {
    if (border != nullptr) border->piecesRead.push_back(size);
    return __real_fgets(text, size, file);
}
int __real_gethostname(char* name, std::size_t size);
int __wrap_gethostname(char* name, std::size_t size) {
    return border != nullptr && border->hostName ? border->hostName(name, size) : __real_gethostname(name, size);
}
hostent* __real_gethostbyname(const char* name);
hostent* __wrap_gethostbyname(const char* name) {
    return border != nullptr && border->resolve ? border->resolve(name) : __real_gethostbyname(name);
}
int __real_getifaddrs(ifaddrs** list);
int __wrap_getifaddrs(ifaddrs** list) {
    return border != nullptr && border->interfaces ? border->interfaces(list) : __real_getifaddrs(list);
}
void __real_freeifaddrs(ifaddrs* list);
void __wrap_freeifaddrs(ifaddrs* list) {
    if (border == nullptr || !border->interfaces) return __real_freeifaddrs(list);
    ++border->listsFreed;
}
int __real_uname(utsname* names);
int __wrap_uname(utsname* names) {
    return border != nullptr && border->names ? border->names(names) : __real_uname(names);
}
}

namespace {

// --- exec -----------------------------------------------------------------------------------------------------------

TEST_F(Exec, GivesEverythingThatTheCommandPrints) {
    EXPECT_EQ("one\ntwo\n", exec("printf 'one\\ntwo\\n'"));
    EXPECT_EQ("no line end", exec("printf 'no line end'"));
    EXPECT_EQ("", exec("true"));
}

TEST_F(Exec, ReadsLongLinesInPiecesOf127CharactersAndLosesNothing) {
    std::string line;
    for (int i = 0; i < 300; ++i) line += static_cast<char>('a' + i % 26);
    EXPECT_EQ(line + "\n", exec(("echo " + line).c_str()));
    EXPECT_THAT(fake.piecesRead, testing::Each(128));
    EXPECT_GE(fake.piecesRead.size(), 3U);
}

TEST_F(Exec, IgnoresTheCommandsStatus) { EXPECT_EQ("x", exec("printf x; exit 3")); }

TEST_F(Exec, OfACommandThatDoesNotExistIsEmpty) { EXPECT_EQ("", exec("/nonexistent/command 2>/dev/null")); }

TEST_F(Exec, ThrowsWhenThePipeCannotBeOpened) {
    fake.command = [](const std::string&) { return ""; };
    try {
        exec("true");
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("popen() failed!", error.what());
    }
}

TEST_F(Exec, RefusesANullCommandLikeAPipeThatCannotBeOpened) { EXPECT_THROW(exec(nullptr), std::runtime_error); }

// A profiler in the host may interrupt system calls all the time.
TEST_F(Exec, LosesNothingToSignalsOfTheHost) {
    struct sigaction ignore {
    }, before{};
    ignore.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(0, sigaction(SIGALRM, &ignore, &before));
    const itimerval often{{0, 20'000}, {0, 20'000}}, never{};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &often, nullptr));
    const std::string output = exec("printf one; sleep 0.2; printf two; sleep 0.2; echo three");
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ("onetwothree\n", output);
    EXPECT_GT(fake.piecesRead.size(), 4U) << "no read was interrupted";
}

TEST_F(Exec, EndsAtAPipeThatCannotBeRead) {
    fake.opened = "/";
    EXPECT_EQ("", exec("true"));
    EXPECT_EQ(1, fake.pipesClosed);
}

TEST_F(Exec, ClosesThePipe) {
    exec("true");
    EXPECT_EQ(1, fake.pipesClosed);
}

// --- KRPGetMachineName ----------------------------------------------------------------------------------------------

TEST_F(KRPGetMachineNameTest, IsTheResolversOfficialName) {
    static char official[] = "host.example";
    fake.hostName = [](char* name, std::size_t size) {
        EXPECT_EQ(150U, size);
        std::strcpy(name, "host");
        return 0;
    };
    fake.resolve = [](const char* name) {
        static hostent host{};
        EXPECT_STREQ("host", name);
        host.h_name = official;
        return &host;
    };
    EXPECT_STREQ("host.example", KRPGetMachineName());
}

TEST_F(KRPGetMachineNameTest, IsThePlainNameWhereItDoesNotResolve) {
    fake.hostName = [](char* name, std::size_t) {
        std::strcpy(name, "plain");
        return 0;
    };
    fake.resolve = [](const char*) { return static_cast<hostent*>(nullptr); };
    EXPECT_STREQ("plain", KRPGetMachineName());
}

TEST_F(KRPGetMachineNameTest, AsksAnewAndClearsItsBuffer) {
    fake.resolve = [](const char*) { return static_cast<hostent*>(nullptr); };
    fake.hostName = [](char* name, std::size_t) {
        std::strcpy(name, "a longer name");
        return 0;
    };
    const char* const first = KRPGetMachineName();
    EXPECT_STREQ("a longer name", first);
    fake.hostName = [](char*, std::size_t) { return -1; };
    EXPECT_EQ(first, KRPGetMachineName());
    EXPECT_EQ(std::string(150, '\0'), std::string(first, 150));
}

TEST_F(KRPGetMachineNameTest, AlwaysEndsInNul) {
    fake.hostName = [](char* name, std::size_t size) {
        std::memset(name, 'h', size);
        return 0;
    };
    fake.resolve = [](const char*) { return static_cast<hostent*>(nullptr); };
    EXPECT_EQ(std::string(149, 'h'), KRPGetMachineName());

    static char longName[201];
    std::memset(longName, 'n', 200);
    fake.resolve = [](const char*) {
        static hostent host{};
        host.h_name = longName;
        return &host;
    };
    EXPECT_EQ(std::string(149, 'n'), KRPGetMachineName());
}

TEST(KRPGetMachineName, AgreesWithTheSystem) {
    char plain[150] = "";
    ASSERT_EQ(0, gethostname(plain, sizeof plain));
    const hostent* const host = gethostbyname(plain);
    EXPECT_STREQ(host != nullptr ? host->h_name : plain, KRPGetMachineName());
}

// --- KRPGetCPUInfo --------------------------------------------------------------------------------------------------

// Calls it that often in a process of its own, with `cpuinfo` as what the command prints.
std::string cpuInfo(const std::string& cpuinfo, int calls) {
    return inChild([&] {
        Border fake;
        border = &fake;
        fake.command = [&](const std::string&) { return "printf '" + cpuinfo + "'"; };
        std::string texts;
        try {
            for (int i = 0; i < calls; ++i) texts += std::string(KRPGetCPUInfo()) + "|";
        } catch (const std::out_of_range& error) {
            texts += std::string("out of range: ") + error.what();
        }
        for (const std::string& command : fake.commandsRun) texts += " <" + command + ">";
        return texts;
    });
}

constexpr char kCommand[] = " <cat /proc/cpuinfo | grep \"model name\">";

TEST(KRPGetCPUInfo, IsTheFirstProcessorsModel) {
    EXPECT_EQ(std::string("Fast CPU 9|") + kCommand, cpuInfo("model name\\t: Fast CPU 9\\nmodel name\\t: Other\\n", 1));
}

TEST(KRPGetCPUInfo, LaterCallsDropOneLeadingCharacterEachAndRunNoCommand) {
    EXPECT_EQ(std::string("Fast|ast|st|") + kCommand, cpuInfo("model name : Fast\\n", 3));
}

TEST(KRPGetCPUInfo, AColonInTheNameIsTrimmedAtAgain) {
    EXPECT_EQ(std::string("A: Bcd|Bcd|cd|") + kCommand, cpuInfo("model name : A: Bcd\\n", 3));
}

TEST(KRPGetCPUInfo, ThrowsWithoutAModelName) {
    const std::string texts = cpuInfo("", 1);
    EXPECT_THAT(texts, StartsWith("out of range: basic_string::substr"));
    EXPECT_THAT(texts, HasSubstr(kCommand));
}

TEST(KRPGetCPUInfo, ThrowsWhenItsTextIsUsedUp) {
    EXPECT_THAT(cpuInfo("model name : A\\n", 5), StartsWith("A||out of range: basic_string::substr"));
}

TEST(KRPGetCPUInfo, AFailedPipeIsTriedAgainAtTheNextCall) {
    EXPECT_EQ("popen() failed! then CPU", inChild([] {
                  Border fake;
                  border = &fake;
                  std::string texts;
                  fake.command = [](const std::string&) { return ""; };
                  try {
                      texts += KRPGetCPUInfo();
                  } catch (const std::runtime_error& error) {
                      texts += error.what();
                  }
                  fake.command = [](const std::string&) { return "printf 'model name : CPU\\n'"; };
                  return texts + " then " + KRPGetCPUInfo();
              }));
}

// --- KRPIs64BitEnv --------------------------------------------------------------------------------------------------

TEST_F(HostFacts, KRPIs64BitEnvComparesTheFirstTwoCharacters) {
    const struct {
        const char* printed;
        bool expected;
    } rows[] = {{"64\\n", true}, {"640", true}, {"64", true},  {"32\\n", false},
                {"", false},     {"6", false},  {" 64", false}};
    for (const auto& row : rows) {
        fake.command = [&](const std::string&) { return std::string("printf '") + row.printed + "'"; };
        EXPECT_EQ(row.expected, KRPIs64BitEnv()) << row.printed;
    }
    EXPECT_EQ(std::vector<std::string>(7, "getconf LONG_BIT"), fake.commandsRun) << "the command runs at every call";
}

// --- KRPGetIPAddress ------------------------------------------------------------------------------------------------

// A hand-made interface list.
struct Interfaces {
    struct Node {
        ifaddrs entry{};
        std::string name;
        sockaddr_storage address{};
    };
    std::vector<std::unique_ptr<Node>> nodes;

    void add(const char* name, int family, const char* address) {
        auto node = std::make_unique<Node>();
        node->name = name;
        node->entry.ifa_name = node->name.data();
        node->entry.ifa_addr = reinterpret_cast<sockaddr*>(&node->address);
        node->address.ss_family = static_cast<sa_family_t>(family);
        if (family == AF_INET) inet_pton(family, address, &reinterpret_cast<sockaddr_in&>(node->address).sin_addr);
        if (family == AF_INET6) inet_pton(family, address, &reinterpret_cast<sockaddr_in6&>(node->address).sin6_addr);
        if (!nodes.empty()) nodes.back()->entry.ifa_next = &node->entry;
        nodes.push_back(std::move(node));
    }
    void addWithoutAddress(const char* name) {
        add(name, AF_INET, "0.0.0.0");
        nodes.back()->entry.ifa_addr = nullptr;
    }
    int give(ifaddrs** list) {
        *list = nodes.empty() ? nullptr : &nodes.front()->entry;
        return 0;
    }
};

// What the calls return, in a process of its own.
std::string addressesOf(Interfaces& interfaces, int calls = 1) {
    return inChild([&] {
        Border fake;
        border = &fake;
        fake.interfaces = [&](ifaddrs** list) { return interfaces.give(list); };
        std::string texts;
        for (int i = 0; i < calls; ++i) texts += KRPGetIPAddress() + std::string("|");
        return texts + std::to_string(fake.listsFreed) + " freed";
    });
}

TEST(KRPGetIPAddress, ListsIPv4AndIPv6InInterfaceOrder) {
    Interfaces interfaces;
    interfaces.add("lo", AF_INET, "127.0.0.1");
    interfaces.add("eth0", AF_PACKET, "");
    interfaces.add("eth0", AF_INET, "10.1.2.3");
    interfaces.addWithoutAddress("tun0");
    interfaces.add("lo", AF_INET6, "::1");
    interfaces.add("eth0", AF_INET6, "fe80::1");
    EXPECT_EQ("IP4: 10.1.2.3 IP6: fe80::1 |1 freed", addressesOf(interfaces));
}

TEST(KRPGetIPAddress, EachCallAppendsTheAddressesAgain) {
    Interfaces interfaces;
    interfaces.add("eth0", AF_INET, "10.1.2.3");
    EXPECT_EQ("IP4: 10.1.2.3 |IP4: 10.1.2.3 IP4: 10.1.2.3 |2 freed", addressesOf(interfaces, 2));
}

TEST(KRPGetIPAddress, SkipsOnlyTheInterfaceNamedExactlyLo) {
    Interfaces interfaces;
    interfaces.add("lo", AF_INET, "127.0.0.1");
    interfaces.add("lo0", AF_INET, "127.0.0.2");
    interfaces.add("lo:1", AF_INET, "127.0.0.3");
    EXPECT_EQ("IP4: 127.0.0.2 IP4: 127.0.0.3 |1 freed", addressesOf(interfaces));
}

TEST(KRPGetIPAddress, LoopbackAloneGivesAnEmptyText) {
    Interfaces interfaces;
    interfaces.add("lo", AF_INET, "127.0.0.1");
    EXPECT_EQ("|1 freed", addressesOf(interfaces));
}

TEST(KRPGetIPAddress, ShowsTheLongestAddressWhole) {
    Interfaces interfaces;
    interfaces.add("eth0", AF_INET6, "1111:2222:3333:4444:5555:6666:7777:8888");
    interfaces.add("eth0", AF_INET, "255.255.255.255");
    EXPECT_EQ("IP6: 1111:2222:3333:4444:5555:6666:7777:8888 IP4: 255.255.255.255 |1 freed", addressesOf(interfaces));
}

TEST(KRPGetIPAddress, AFailedListLeavesTheTextAsItWas) {
    EXPECT_EQ("IP4: 10.1.2.3 |", inChild([] {
                  Border fake;
                  border = &fake;
                  Interfaces interfaces;
                  interfaces.add("eth0", AF_INET, "10.1.2.3");
                  fake.interfaces = [&](ifaddrs** list) { return interfaces.give(list); };
                  KRPGetIPAddress();
                  fake.interfaces = [](ifaddrs**) { return -1; };
                  return KRPGetIPAddress() + std::string("|");
              }));
}

TEST(KRPGetIPAddress, AgreesWithTheIpCommand) {
    const std::string listed = exec("ip -o addr");
    ASSERT_FALSE(listed.empty()) << "`ip -o addr` printed nothing";
    const std::string addresses = inChild([] { return std::string(KRPGetIPAddress()); });
    const std::string expected = exec(
        "ip -o addr | awk '$2 != \"lo\" && ($3 == \"inet\" || $3 == \"inet6\") "
        "{ sub(\"/.*\", \"\", $4); print ($3 == \"inet\" ? \"IP4: \" : \"IP6: \") $4 }' | sort | tr '\\n' ' '");
    const std::string sorted = exec(
        ("printf '%s' '" + addresses + "' | sed 's/ IP/\\nIP/g; s/ $//' | sed '/^$/d' | sort | tr '\\n' ' '").c_str());
    EXPECT_EQ(expected, sorted);
}

// --- KRPGetOSInfo and the fixed answers -----------------------------------------------------------------------------

TEST_F(HostFacts, KRPGetOSInfoSaysLinuxTwice) {
    fake.names = [](utsname* names) {
        std::strcpy(names->sysname, "Linux");
        std::strcpy(names->release, "5.15.0");
        return 0;
    };
    const char* const first = KRPGetOSInfo();
    EXPECT_STREQ("Linux (Linux 5.15.0)", first);
    fake.names = [](utsname*) { return -1; };
    EXPECT_EQ(first, KRPGetOSInfo());
    EXPECT_STREQ("Linux ( )", first);
}

TEST(KRPGetOSInfo, AgreesWithUname) {
    EXPECT_EQ(exec("printf 'Linux (%s %s)' \"$(uname -s)\" \"$(uname -r)\""), KRPGetOSInfo());
}

TEST(FixedAnswers, StayAsTheyAre) {
    EXPECT_FALSE(IsNT());
    EXPECT_EQ(0, GetProcessHandle());
    EXPECT_EQ(0, KRPGetWorkingSetSize());
}

TEST(HostFactsLog, NothingIsLogged) {
    EXPECT_EQ("0 records", inChild([] {
                  LogCapture log;
                  KRPGetMachineName();
                  KRPGetIPAddress();
                  KRPGetOSInfo();
                  KRPIs64BitEnv();
                  return std::to_string(log.entries().size()) + " records";
              }));
}

// --- the start-up report --------------------------------------------------------------------------------------------

// The records of KREInit calls on an init file, in a process of its own, as "Level text" lines.
std::string reportOf(const std::string& ini, int calls, const std::function<void(Border&)>& prepare = {}) {
    const TempDir dir;
    dir.writeFile("pressmark.ini", ini);
    return inChild([&] {
        Border fake;
        border = &fake;
        Interfaces interfaces;
        interfaces.add("eth0", AF_INET, "10.1.2.3");
        fake.interfaces = [&](ifaddrs** list) { return interfaces.give(list); };
        fake.hostName = [](char* name, std::size_t) { return std::strcpy(name, "generator7") != nullptr ? 0 : -1; };
        fake.resolve = [](const char*) { return static_cast<hostent*>(nullptr); };
        fake.names = [](utsname* names) {
            std::strcpy(names->sysname, "Linux");
            std::strcpy(names->release, "5.15.0");
            return 0;
        };
        fake.command = [](const std::string& command) {
            return command == "getconf LONG_BIT" ? "printf '64\\n'" : "printf 'model name : Fast CPU\\n'";
        };
        if (prepare) prepare(fake);
        LogCapture log;
        nLogging::gEnable(nLogging::Level::Trace, false);
        std::string lines;
        for (int i = 0; i < calls; ++i) {
            if (KREInit(dir.path().c_str()) != 1) lines += "KREInit failed\n";
        }
        for (const LogCapture::Entry& entry : log.entries()) {
            lines += std::string(nLogging::gLevelName(entry.level)) + " " + entry.text + "\n";
            if (entry.category != "PMEnvironment" || entry.file != "../src/krenvf") lines += "from elsewhere\n";
        }
        return lines;
    });
}

std::string banner() { return "Execution /" + std::string(72, '*') + "/\n"; }

std::string memoryLine() {
    struct sysinfo info {};
    sysinfo(&info);
    return "Execution Memory size: " + std::to_string(static_cast<unsigned long long>(info.totalram) * info.mem_unit) +
           "\n";
}

std::string expectedReport(const std::string& addresses, const std::string& cpu, const std::string& bits,
                           const std::string& version, const std::string& build) {
    return banner() + "Execution Machine Name generator7\n" + "Execution Machine IP: " + addresses + "\n" +
           "Execution Operating System:  Linux (Linux 5.15.0)\n" + "Execution CPU: " + cpu + "\n" + memoryLine() +
           "Execution Bits: " + bits + "\n" + "Execution Pressmark Release " + version + "." + build + "\n" + banner() +
           "Execution KR_VERSION\t" + version + "\tKR_BUILD\t" + build + "\t\n" + banner();
}

TEST(StartUpReport, IsElevenRecords) {
    EXPECT_EQ(expectedReport("IP4: 10.1.2.3 ", "Fast CPU", "64 bit OS", "12", "345"),
              reportOf("KR_VERSION = 12\nKR_BUILD = 345\n", 1));
}

TEST(StartUpReport, TwoInitialisationsWriteItTwice) {
    EXPECT_EQ(expectedReport("IP4: 10.1.2.3 ", "Fast CPU", "64 bit OS", "12", "345") +
                  expectedReport("IP4: 10.1.2.3 IP4: 10.1.2.3 ", "ast CPU", "64 bit OS", "12", "345"),
              reportOf("KR_VERSION = 12\nKR_BUILD = 345\n", 2));
}

TEST(StartUpReport, ShowsAMissingVersionAndBuild) {
    EXPECT_EQ(expectedReport("IP4: 10.1.2.3 ", "Fast CPU", "64 bit OS", "<NullChar*>", "<NullChar*>"), reportOf("", 1));
}

TEST(StartUpReport, ExpandsVersionAndBuild) {
    EXPECT_EQ(expectedReport("IP4: 10.1.2.3 ", "Fast CPU", "64 bit OS", "1.2", "b1.2"),
              reportOf("V = 1.2\nKR_VERSION = #(V)\nKR_BUILD = b#{V}\n", 1));
}

TEST(StartUpReport, TakesVersionAndBuildFromTheInitFileAlone) {
    const auto setAtRunTime = [](Border&) {
        KREnvContainerClass env;
        env.KRESetEnvValue("KR_VERSION", "99");
        env.KRESetEnvValue("KR_BUILD", "999");
    };
    EXPECT_EQ(expectedReport("IP4: 10.1.2.3 ", "Fast CPU", "64 bit OS", "12", "345"),
              reportOf("KR_VERSION = 12\nKR_BUILD = 345\n", 1, setAtRunTime));
}

TEST(StartUpReport, SaysThirtyTwoBits) {
    const auto narrow = [](Border& fake) {
        fake.command = [](const std::string& command) {
            return command == "getconf LONG_BIT" ? "printf '32\\n'" : "printf 'model name : Fast CPU\\n'";
        };
    };
    EXPECT_THAT(reportOf("", 1, narrow), HasSubstr("Execution Bits: 32 bit OS\n"));
}

TEST(StartUpReport, SurvivesAHostThatCannotNameItsProcessor) {
    const std::string lines = reportOf("KR_VERSION = 1\nKR_BUILD = 2\n", 1, [](Border& fake) {
        fake.command = [](const std::string& command) {
            return command == "getconf LONG_BIT" ? "printf 64" : "printf ''";
        };
    });
    const std::string report = expectedReport("IP4: 10.1.2.3 ", "", "64 bit OS", "1", "2");
    const std::size_t warning = lines.find("Warning ");
    ASSERT_NE(std::string::npos, warning) << lines;
    EXPECT_THAT(lines.substr(warning),
                StartsWith("Warning the start-up report has no text for 'CPU: ': basic_string::substr"));
    EXPECT_EQ(report, lines.substr(0, warning) + lines.substr(lines.find('\n', warning) + 1))
        << "one warning, eleven records";
}

TEST(StartUpReport, SurvivesAHostThatCanRunNoCommands) {
    const std::string lines =
        reportOf("", 1, [](Border& fake) { fake.command = [](const std::string&) { return ""; }; });
    EXPECT_THAT(lines, HasSubstr("Warning the start-up report has no text for 'CPU: ': popen() failed!\n"));
    EXPECT_THAT(lines, HasSubstr("Warning the start-up report has no text for 'Bits: ': popen() failed!\n"));
    EXPECT_THAT(lines, HasSubstr("Execution CPU: \n"));
    EXPECT_THAT(lines, HasSubstr("Execution Bits: \n"));
}

TEST(StartUpReport, ComposesNothingWhileItsLevelIsDisabled) {
    const TempDir dir;
    dir.writeFile("pressmark.ini", "");
    EXPECT_EQ("1 result, 0 commands, 0 records", inChild([&] {
                  Border fake;
                  border = &fake;
                  LogCapture log;
                  nLogging::gEnable(nLogging::Level::Execution, false);
                  nLogging::gEnable(nLogging::Level::Trace, false);
                  const int result = KREInit(dir.path().c_str());
                  return std::to_string(result) + " result, " + std::to_string(fake.commandsRun.size()) +
                         " commands, " + std::to_string(log.entries().size()) + " records";
              }));
}

}  // namespace
