// pmenv-exporter as collectors and other clients meet it.
//
// Other tests have load engines at the same time, so that each looks at its own engine.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/LoadEngine.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"

using testing::HasSubstr;
using testing::Lt;
using testing::StartsWith;

namespace {

double clockNow() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

void pauseFor(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

// --- a connection ---------------------------------------------------------------------------------------------------

class Client {
public:
    explicit Client(int port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        isOpen_ = connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~Client() { close(socket_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool isOpen() const { return isOpen_; }

    bool send(const std::string& text) const {
        return ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }

    // Everything up to the end of the connection; empty when that does not come within the time.
    std::optional<std::string> readAll(double seconds = 10) const {
        std::string text;
        for (const double end = clockNow() + seconds;;) {
            pollfd readable{socket_, POLLIN, 0};
            if (poll(&readable, 1, static_cast<int>(std::max(0.0, end - clockNow()) * 1000)) <= 0) return std::nullopt;
            char piece[65536];
            const ssize_t count = recv(socket_, piece, sizeof piece, 0);
            if (count <= 0) return text;
            text.append(piece, static_cast<std::size_t>(count));
        }
    }

private:
    int socket_;
    bool isOpen_;
};

// The sum of the values of the series whose lines begin so; empty when there is none.
std::optional<double> valueIn(const std::string& text, const std::string& beginning) {
    std::optional<double> sum;
    const std::string line = "\n" + beginning;
    for (std::size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
        const std::size_t end = text.find('\n', at + 1);
        sum = sum.value_or(0) + std::stod(text.substr(text.rfind(' ', end) + 1));
    }
    return sum;
}

// --- the program ----------------------------------------------------------------------------------------------------

class Exporter {
public:
    explicit Exporter(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {EXPORTER_BINARY, "--listen", "127.0.0.1:0"});
        std::vector<char*> arguments;
        for (std::string& option : options) arguments.push_back(option.data());
        arguments.push_back(nullptr);
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDERR_FILENO);
            // An instrumented one keeps what it has freed, which is not to be taken for growth.
            setenv("ASAN_OPTIONS", "quarantine_size_mb=1:malloc_context_size=1", 1);
            execv(EXPORTER_BINARY, arguments.data());
            _exit(127);
        }
        close(ends[1]);
        messages_ = ends[0];
        while (announced_.find('\n') == std::string::npos) {
            char piece[256];
            const ssize_t count = read(messages_, piece, sizeof piece);
            if (count <= 0) throw std::runtime_error("the exporter does not start: " + announced_);
            announced_.append(piece, static_cast<std::size_t>(count));
        }
        port_ = std::stoi(announced_.substr(announced_.rfind(':') + 1));
    }
    ~Exporter() {
        stop(SIGKILL);
        close(messages_);
    }
    Exporter(const Exporter&) = delete;
    Exporter& operator=(const Exporter&) = delete;

    int pid() const { return pid_; }
    int port() const { return port_; }
    const std::string& announced() const { return announced_; }

    // Its exit code, or minus the signal that ended it.
    int stop(int signal) {
        if (pid_ <= 0) return 0;
        kill(pid_, signal);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    std::optional<std::string> request(const std::string& text, double seconds = 10) const {
        const Client client(port_);
        if (!client.isOpen() || !client.send(text)) return std::nullopt;
        return client.readAll(seconds);
    }
    std::string get(const std::string& path, const std::string& headers = "") const {
        return request("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n").value_or("");
    }
    std::string metrics() const { return get("/metrics"); }

    std::optional<double> value(const std::string& beginning) const { return valueIn(metrics(), beginning); }

private:
    pid_t pid_ = -1;
    int messages_ = -1;
    std::string announced_;
    int port_ = 0;
};

std::string ofEngine(const std::string& metric, int pid) {
    return "pmenv_engine_" + metric + "{name=\"PMLoadEngineMai\",pid=\"" + std::to_string(pid) + "\"";
}

bool isScrape(const std::optional<std::string>& answer) {
    return answer && answer->rfind("HTTP/1.1 200 OK\r\n", 0) == 0 && answer->find("\n# EOF\n") == answer->size() - 7;
}

constexpr char kScrape[] = "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n";

// --- answers --------------------------------------------------------------------------------------------------------

TEST(PmenvExporter, CountsWhatAnEngineDoesBetweenTwoScrapes) {
    const LoadEngine busy("burn");
    const Exporter exporter;
    EXPECT_THAT(exporter.announced(),
                StartsWith("pmenv-exporter: figures of the load engines are at http://127.0.0.1:"));
    pauseFor(1.5);
    const std::string before = exporter.metrics();
    pauseFor(2);
    const std::string after = exporter.metrics();
    const auto increase = [&](const std::string& series) {
        return valueIn(after, series).value_or(-1) - valueIn(before, series).value_or(-1);
    };
    const double watched = increase("pmenv_watch_seconds_total");
    EXPECT_GT(watched, 1);
    EXPECT_NEAR(increase(ofEngine("busiest_thread_seconds_total", busy.pid())) / watched, 1, 0.1) << "it never pauses";
    EXPECT_TRUE(exporter.value(ofEngine("held_back_seconds_total", busy.pid())));
    EXPECT_TRUE(exporter.value(ofEngine("in_doubt_seconds_total", busy.pid())));
    EXPECT_GT(exporter.value(ofEngine("memory_bytes", busy.pid())).value_or(0), 1e5);
    EXPECT_GE(exporter.value("pmenv_engines{name=\"PMLoadEngineMai\"}").value_or(0), 1);
}

// A collector that comes seldom misses nothing.
TEST(PmenvExporter, AShortDisturbanceIsNotLostBetweenTwoScrapes) {
    const LoadEngine idle("idle");
    const Exporter exporter;
    pauseFor(1.2);
    const double begin = clockNow();
    kill(idle.pid(), SIGSTOP);
    pauseFor(1);
    kill(idle.pid(), SIGCONT);
    const double away = clockNow() - begin;
    pauseFor(1.5);
    const auto stopped = exporter.value(ofEngine("busiest_thread_seconds_total", idle.pid()) + ",state=\"stopped\"");
    EXPECT_GT(stopped.value_or(-1), 0.4);
    EXPECT_LT(stopped.value_or(99), away + 1);
}

TEST(PmenvExporter, AnEngineThatIsKilledIsCounted) {
    LoadEngine engine("idle");
    const Exporter exporter;
    pauseFor(1.2);
    const int pid = engine.pid();
    const double before = exporter.value("pmenv_engines_killed_total").value_or(-1);
    engine.stop();
    pauseFor(2.5);
    EXPECT_GE(exporter.value("pmenv_engines_killed_total").value_or(-1), before + 1);
    EXPECT_TRUE(exporter.value(ofEngine("held_back_seconds_total", pid))) << "with its last value";
    EXPECT_FALSE(exporter.value(ofEngine("memory_bytes", pid)));
}

TEST(PmenvExporter, OptionsSayWhatIsWatchedAndTold) {
    const Exporter exporter({"--engine", "nobodyHasSuchAName", "--engines", "3", "--machine"});
    EXPECT_EQ(exporter.value("pmenv_engines{name=\"nobodyHasSuchAN\"}"), 0);
    EXPECT_EQ(exporter.value("pmenv_engines_expected"), 3);
    EXPECT_GT(exporter.value("pmenv_machine_memory_bytes").value_or(0), 1e6);
    const Exporter plain;
    EXPECT_FALSE(plain.value("pmenv_engines_expected"));
    EXPECT_FALSE(plain.value("pmenv_machine_"));
}

TEST(PmenvExporter, BothFormsAreAccepted) {
    ASSERT_EQ(access("/usr/bin/promtool", X_OK), 0);
    const LoadEngine engine("idle");
    const Exporter exporter({"--machine"});
    pauseFor(1.2);
    const std::string text = exporter.metrics();
    EXPECT_THAT(text, HasSubstr("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    const TempDir directory;
    const std::string file = directory.writeFile("metrics", text.substr(text.find("\r\n\r\n") + 4));
    const ProgramResult checked = runProgram({"/bin/sh", "-c", "promtool check metrics <" + file});
    EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
    EXPECT_EQ(checked.err, "");

    const std::string newer = exporter.get("/metrics", "Accept: application/openmetrics-text; version=1.0.0\r\n");
    EXPECT_THAT(newer, HasSubstr("\r\nContent-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\r\n"));
    EXPECT_THAT(newer, HasSubstr("\n# TYPE pmenv_engine_cpu_seconds counter\n"));
}

TEST(PmenvExporter, OnlyReadingIsAnswered) {
    const Exporter exporter;
    const std::string head = exporter.request("HEAD /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n").value_or("");
    EXPECT_THAT(head, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\nContent-Length: "));
    EXPECT_THAT(head, HasSubstr("\r\nConnection: close\r\n")) << "a connection serves one request";
    EXPECT_EQ(head.find("\r\n\r\n"), head.size() - 4) << "without a body";
    EXPECT_THAT(exporter.get("/"), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(exporter.get("/-/healthy"), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(exporter.get("/x"), StartsWith("HTTP/1.1 404 "));
    for (const char* const method : {"POST", "PUT", "DELETE"}) {
        const std::string answer =
            exporter
                .request(std::string(method) + " /metrics HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3\r\n\r\nabc")
                .value_or("");
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 ")) << method;
        EXPECT_THAT(answer, HasSubstr("\r\nAllow: GET, HEAD\r\n")) << method;
    }
    EXPECT_TRUE(isScrape(exporter.metrics()));
}

// --- beginning and end ----------------------------------------------------------------------------------------------

TEST(PmenvExporter, SignalsEndItAtOnce) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Exporter exporter;
        const Client silent(exporter.port());
        pauseFor(0.2);
        const double begin = clockNow();
        EXPECT_EQ(exporter.stop(signal), 0);
        EXPECT_LT(clockNow() - begin, 2);
    }
}

TEST(PmenvExporter, WrongUsageIsRefused) {
    const auto errorOf = [](const std::vector<std::string>& options, int status) {
        std::vector<std::string> words{EXPORTER_BINARY};
        words.insert(words.end(), options.begin(), options.end());
        const ProgramResult result = runProgram(words);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, "");
        return result.err;
    };
    EXPECT_EQ(errorOf({"--lisen", "x"}, 2),
              "pmenv-exporter: there is no option '--lisen' of 'pmenv-exporter'; did you mean "
              "'--listen'? See 'pmenv-exporter --help'\n");
    EXPECT_EQ(errorOf({"x"}, 2),
              "pmenv-exporter: 'pmenv-exporter' takes no further argument 'x'; see 'pmenv-exporter --help'\n");
    EXPECT_EQ(errorOf({"--engine", ""}, 2), "pmenv-exporter: --engine needs a name; see 'pmenv-exporter --help'\n");
    EXPECT_THAT(errorOf({"--engines", "0"}, 2),
                HasSubstr("--engines needs a whole number from 1 to 1000000000, not '0'"));
    EXPECT_THAT(errorOf({"--tolerance", "0"}, 2), HasSubstr("--tolerance needs a number from 1 to 60000, not '0'"));
    EXPECT_THAT(errorOf({"--listen", "localhost:1"}, 2),
                HasSubstr("--listen needs an address in numbers, not 'localhost'"));

    const Exporter exporter;
    const std::string address = "127.0.0.1:" + std::to_string(exporter.port());
    EXPECT_EQ(errorOf({"--listen", address}, 1),
              "pmenv-exporter: cannot listen at " + address +
                  ": Address already in use; --listen ADDRESS:PORT chooses another address\n");
}

TEST(PmenvExporter, ManualAndHelpNameTheSameOptions) {
    const std::string help = runProgram({EXPORTER_BINARY, "--help"}).out;
    const std::string page = readFileText(EXPORTER_PAGE);
    const auto optionsIn = [](const std::string& text, const std::string& mark) {
        std::vector<std::string> options;
        for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
            const std::size_t begin = at + mark.size();
            options.push_back(text.substr(begin, text.find_first_of(" \n\"", begin) - begin));
        }
        return options;
    };
    std::string plain = page;
    for (std::size_t at; (at = plain.find("\\-")) != std::string::npos;) plain.erase(at, 1);
    EXPECT_GE(optionsIn(help, "\n  --").size(), 8U);
    EXPECT_EQ(optionsIn(plain, ".TP\n.BI \"--").size() + optionsIn(plain, ".TP\n.B --").size(),
              optionsIn(help, "\n  --").size());
    for (const std::string& option : optionsIn(help, "\n  --")) {
        EXPECT_THAT(plain,
                    testing::AnyOf(HasSubstr(".TP\n.BI \"--" + option + " "), HasSubstr(".TP\n.B --" + option + "\n")));
    }
}

// --- slow, cut and hostile clients ----------------------------------------------------------------------------------

TEST(PmenvExporter, WhatIsNoRequestIsRefused) {
    const Exporter exporter;
    const std::string longPath(20000, 'x');
    for (const std::string& request :
         {std::string("GET /metrics HTTP/1.1\r\n\r\n"), "GET /" + longPath + " HTTP/1.1\r\nHost: x\r\n\r\n",
          "GET /metrics HTTP/1.1\r\nHost: x\r\nX: " + longPath + "\r\n\r\n", std::string(300000, '\xff'),
          std::string("GET /metrics HTTP/9.9\r\nHost: x\r\n\r\n"), std::string("\r\n\r\n\r\n\r\n\0\0\0\0\r\n\r\n", 16),
          std::string("POST /metrics HTTP/1.1\r\nHost: x\r\nContent-Length: 99999999999999999999\r\n\r\n"),
          std::string("POST /metrics HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\nZZZ\r\n")}) {
        const auto answer = exporter.request(request);
        EXPECT_FALSE(isScrape(answer)) << request.substr(0, 60);
    }
    EXPECT_TRUE(isScrape(exporter.metrics()));
}

TEST(PmenvExporter, ASlowClientIsCutOff) {
    const Exporter exporter;
    const Client silent(exporter.port()), trickling(exporter.port());
    ASSERT_TRUE(silent.send("GET /metrics HTTP/1.1\r\n"));
    const double begin = clockNow();
    while (trickling.send("X") && clockNow() - begin < 20) pauseFor(0.2);
    EXPECT_GT(clockNow() - begin, 3);
    EXPECT_LT(clockNow() - begin, 9) << "however often it sends something";
    const auto answer = silent.readAll(9);
    EXPECT_TRUE(answer);
    EXPECT_FALSE(isScrape(answer));
}

TEST(PmenvExporter, ScrapesAreAnsweredBesideClientsThatHoldConnections) {
    const Exporter exporter;
    std::vector<std::unique_ptr<Client>> silent;
    for (int i = 0; i < 100; ++i) silent.push_back(std::make_unique<Client>(exporter.port()));
    for (const auto& client : silent) client->send("GET /metrics HTTP/1.1\r\n");
    const double begin = clockNow();
    EXPECT_TRUE(isScrape(exporter.metrics()));
    EXPECT_LT(clockNow() - begin, 2);

    for (int i = 0; i < 60; ++i) silent.push_back(std::make_unique<Client>(exporter.port()));  // more than may be open
    EXPECT_TRUE(isScrape(exporter.metrics()));
    EXPECT_LT(clockNow() - begin, 12) << "when the first of them are cut off";
}

// --- under load -----------------------------------------------------------------------------------------------------

std::size_t residentKilobytes(int pid) {
    const std::string status = readFileText("/proc/" + std::to_string(pid) + "/status");
    return std::stoul(status.substr(status.find("VmRSS:") + 6));
}

// Connects, does something that no scrape does, and goes away.
void disturb(int port, int kind) {
    const Client client(port);
    if (kind == 0) client.send(kScrape);  // and does not wait for the answer
    if (kind == 1) client.send(std::string(20000, 'A'));
    if (kind == 2) client.send("GET /met");
    if (kind == 3) client.send("\r\n\r\n" + std::string(kScrape) + kScrape);
    if (kind == 4) client.readAll(0.3);
}

// For EXPORTER_LOAD_SECONDS, or a few.
TEST(PmenvExporter, NoScrapeIsLostBesideHostileClients) {
    const char* const asked = std::getenv("EXPORTER_LOAD_SECONDS");
    const double seconds = asked != nullptr ? std::stod(asked) : 3;
    constexpr double kEvery = 1.0 / 200;
    const LoadEngine engine("idle");
    const Exporter exporter;
    for (int kind = 0; kind < 20; ++kind) disturb(exporter.port(), kind % 5);
    ASSERT_TRUE(isScrape(exporter.metrics()));
    const std::size_t memoryBefore = residentKilobytes(exporter.pid());
    const double usedBefore = secondsOfProcessor(exporter.pid());

    const double begin = clockNow();
    std::thread hostile([&] {
        for (int kind = 0; clockNow() - begin < seconds; ++kind) {
            disturb(exporter.port(), kind % 5);
            pauseFor(0.01);
        }
    });
    int scrapes = 0, lost = 0;
    for (; scrapes * kEvery < seconds; ++scrapes) {
        pauseFor(std::max(0.0, begin + scrapes * kEvery - clockNow()));
        if (!isScrape(exporter.metrics())) ++lost;
    }
    hostile.join();
    const double took = clockNow() - begin;
    EXPECT_EQ(lost, 0);
    EXPECT_THAT(residentKilobytes(exporter.pid()), Lt(memoryBefore + 4096)) << "kilobytes";
    std::cout << scrapes << " scrapes in " << took << " s, " << secondsOfProcessor(exporter.pid()) - usedBefore
              << " s of processor time, " << memoryBefore << " -> " << residentKilobytes(exporter.pid()) << " KB\n";
}

}  // namespace
