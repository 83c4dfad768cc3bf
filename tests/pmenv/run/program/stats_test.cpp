// pmenv stats as a user runs it. Other load engines may run on the machine meanwhile, so the tests
// look for the processes that they start themselves.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <termios.h>

#include "support/LoadEngine.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"
#include "support/TerminalRun.h"

using nlohmann::json;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using Words = std::vector<std::string>;
using Environment = std::map<std::string, const char*>;

Words pmenv(Words words, const Words& more = {}) {
    words.insert(words.begin(), PMENV_BINARY);
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Environment environment() {
    return {
        {"HOME", "/nonexistent"}, {"KR_BIN", nullptr}, {"PM_LOG", nullptr}, {"NO_COLOR", nullptr}, {"TERM", "xterm"}};
}

ProgramResult run(Words words, const Words& more = {}) {
    return runProgram(pmenv(std::move(words), more), environment());
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// True when `condition` holds within a minute.
bool soon(const std::function<bool()>& condition) {
    for (int i = 0; i < 1200; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

json engineIn(const json& sample, pid_t pid) {
    for (const json& engine : sample.at("engines")) {
        if (engine.at("pid") == pid) return engine;
    }
    return nullptr;
}

double meminfoBytes(const std::string& name) {
    for (const std::string& line : linesOf(readFileText("/proc/meminfo"))) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) return std::stod(line.substr(name.size() + 1)) * 1024;
    }
    return -1;
}

// --- figures --------------------------------------------------------------------------------------------------------

TEST(PmenvStats, FiguresAgreeWithTheKernels) {
    const LoadEngine engine("idle");
    const ProgramResult outcome = run({"stats", "--json"});
    EXPECT_EQ(outcome.status, 0);
    ASSERT_EQ(linesOf(outcome.out).size(), 1u);
    const json sample = json::parse(outcome.out);

    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    EXPECT_EQ(sample.at("host"), host);
    EXPECT_EQ(sample.at("memoryBytes").get<double>(), meminfoBytes("MemTotal"));
    EXPECT_EQ(sample.at("swapBytes").get<double>(), meminfoBytes("SwapTotal"));
    EXPECT_NEAR(sample.at("availableBytes").get<double>(), meminfoBytes("MemAvailable"),
                0.2 * meminfoBytes("MemTotal"));
    EXPECT_EQ(sample.at("processors"), sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_GE(sample.at("cpuPercent"), 0.0);
    EXPECT_LE(sample.at("cpuPercent"), 100.0);

    const json found = engineIn(sample, engine.pid());
    ASSERT_FALSE(found.is_null());
    EXPECT_EQ(found.at("name"), "PMLoadEngineMai");
    EXPECT_LT(found.at("cpuPercentOfOne"), 20.0);
    const std::string statm = readFileText("/proc/" + std::to_string(engine.pid()) + "/statm");
    const double resident = std::stod(statm.substr(statm.find(' '))) * static_cast<double>(sysconf(_SC_PAGESIZE));
    EXPECT_NEAR(found.at("residentBytes").get<double>(), resident, 1024.0 * 1024);
}

// The engine gets what a busy machine leaves it, so its share is compared with what the kernel accounts for it
// meanwhile.
TEST(PmenvStats, AnEnginesPercentageIsOfOneProcessor) {
    const LoadEngine engine("burn");
    double shown = 0;
    double measured = 0;
    for (int attempt = 0; attempt < 5; ++attempt) {
        const double before = secondsOfProcessor(engine.pid());
        const auto start = std::chrono::steady_clock::now();
        const json sample = json::parse(run({"stats", "--json"}).out);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        measured = 100 * (secondsOfProcessor(engine.pid()) - before) / seconds.count();
        shown = engineIn(sample, engine.pid()).at("cpuPercentOfOne").get<double>();
        if (std::abs(shown - measured) < 0.25 * measured) return;
    }
    FAIL() << "shown " << shown << " %, measured " << measured << " %";
}

TEST(PmenvStats, ANewEnginesPercentageIsUnknownUntilItsSecondSample) {
    const TempDir directory;
    const std::string out = directory / "samples";
    const Words words{"/bin/sh", "-c",
                      "exec " + std::string(PMENV_BINARY) + " stats --json --count 4 --interval 1 >" + out};
    std::thread started([&] { runProgram(words, environment()); });
    EXPECT_TRUE(soon([&] { return !linesOf(readFileText(out)).empty(); }));
    const LoadEngine engine("idle");
    started.join();

    std::vector<bool> known;
    for (const std::string& line : linesOf(readFileText(out))) {
        const json found = engineIn(json::parse(line), engine.pid());
        if (!found.is_null()) known.push_back(!found.at("cpuPercentOfOne").is_null());
    }
    ASSERT_GE(known.size(), 2u);
    EXPECT_FALSE(known[0]);
    EXPECT_TRUE(known[1]);
}

// Nobody has asked yet how it ended, so the kernel still lists it.
TEST(PmenvStats, AnEngineThatHasEndedIsNone) {
    const LoadEngine ended("idle");
    const LoadEngine running("idle");
    kill(ended.pid(), SIGKILL);
    const std::string file = "/proc/" + std::to_string(ended.pid()) + "/stat";
    ASSERT_TRUE(soon([&] { return readFileText(file).find(") Z ") != std::string::npos; }));
    const json sample = json::parse(run({"stats", "--json"}).out);
    EXPECT_TRUE(engineIn(sample, ended.pid()).is_null());
    EXPECT_FALSE(engineIn(sample, running.pid()).is_null());
}

// The times of the samples in seconds of their minute.
std::vector<double> secondsOfSamples(const std::string& out) {
    std::vector<double> seconds;
    for (const std::string& line : linesOf(out)) {
        const std::string time = json::parse(line).at("time");
        seconds.push_back(std::stod(time.substr(time.rfind(':') + 1)));
    }
    return seconds;
}

// A busy machine may be late, but not each time.
TEST(PmenvStats, SamplesAreTakenOnFullSeconds) {
    std::vector<double> seconds;
    const auto punctual = [&] {
        return std::all_of(seconds.begin(), seconds.end(), [](double s) { return s - std::floor(s) < 0.02; });
    };
    for (int attempt = 0; attempt < 4 && (seconds.empty() || !punctual()); ++attempt) {
        seconds = secondsOfSamples(run({"stats", "--json", "--count", "3"}).out);
    }
    ASSERT_EQ(seconds.size(), 3u);
    EXPECT_TRUE(punctual()) << seconds[0] << " " << seconds[1] << " " << seconds[2];
    for (std::size_t i = 1; i < 3; ++i) {
        EXPECT_EQ((static_cast<int>(seconds[i]) + 60 - static_cast<int>(seconds[i - 1])) % 60, 1) << "none is left out";
    }
}

// Processes with an engine's name come and go faster than they can be looked at.
TEST(PmenvStats, EnginesThatEndMeanwhileAreNoTrouble) {
    const TempDir directory;
    const std::string program = directory / "PMLoadEngineMain";
    std::filesystem::create_symlink("/bin/bash", program);
    const std::string script = "for i in 1 2 3 4 5 6 7 8; do " + program + " -c 'while :; do (:); done' & done; " +
                               PMENV_BINARY + " stats --json --count 5 2>" +
                               directory / "errors; kill -KILL $(jobs -p)";
    const ProgramResult outcome = runProgram({"/bin/bash", "-c", script}, environment());
    EXPECT_EQ(linesOf(outcome.out).size(), 5u);
    EXPECT_EQ(readFileText(directory / "errors"), "");
}

TEST(PmenvStats, TableIsForPeople) {
    const LoadEngine engine("idle");
    const ProgramResult outcome = run({"stats", "--count", "2"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    const std::regex machine(
        "TIME +CPU +PROCESSORS[^\n]*\n[0-9T:.-]+Z +[0-9]+\\.[0-9] % +[0-9]+ +[0-9.]+ [GMT]iB [^\n]*\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(outcome.out.begin(), outcome.out.end(), machine), {}), 2);
    EXPECT_TRUE(std::regex_search(outcome.out, std::regex("\n *" + std::to_string(engine.pid()) +
                                                          " +[0-9.]+ % +[0-9.]+ [KM]iB +[0-9.]+ % +([0-9.]+ %|-) +"
                                                          "PMLoadEngineMai [0-9.]+ %  PMLoadEngineMai\n")))
        << outcome.out;
}

std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, ',');) fields.push_back(field);
    return fields;
}

// A thread that runs without a pause has nothing to spare.
TEST(PmenvStats, TellsWhatHeldAnEngineBack) {
    const LoadEngine engine("burn");
    const json found = engineIn(json::parse(run({"stats", "--json"}).out), engine.pid());
    ASSERT_FALSE(found.is_null());
    EXPECT_GT(found.at("heldBackPercent"), 50.0) << found;
    EXPECT_LE(found.at("heldBackPercent"), 100.0) << found;
    EXPECT_EQ(found.at("worstThread").at("tid"), engine.pid());
    EXPECT_GT(found.at("worstThread").at("busyPercent"), 80.0) << found;
}

TEST(PmenvStats, CsvHasOneHeaderAndALineForEachEngine) {
    const LoadEngine first("idle");
    const LoadEngine second("idle");
    const auto lines = linesOf(run({"stats", "--csv", "--count", "2"}).out);
    ASSERT_GE(lines.size(), 5u);
    EXPECT_THAT(lines[0], StartsWith("time,host,processors,cpu_percent,"));
    std::map<std::string, std::set<std::string>> enginesAt;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        EXPECT_EQ(std::count(lines[i].begin(), lines[i].end(), ','), std::count(lines[0].begin(), lines[0].end(), ','));
        const std::vector<std::string> fields = fieldsOf(lines[i]);
        enginesAt[fields.at(0)].insert(fields.at(9));
    }
    EXPECT_EQ(enginesAt.size(), 2u);
    for (const auto& [time, pids] : enginesAt) {
        EXPECT_EQ(pids.count(std::to_string(first.pid())), 1u) << time;
        EXPECT_EQ(pids.count(std::to_string(second.pid())), 1u) << time;
    }
}

// --- exposition -----------------------------------------------------------------------------------------------------

TEST(PmenvStats, ExpositionIsAcceptedByPromtool) {
    ASSERT_TRUE(isInstalled("/usr/bin/promtool"));
    const LoadEngine engine("idle");
    for (const std::string& form :
         {std::string(), std::string(" --per-process"), std::string(" --machine --per-process")}) {
        const ProgramResult outcome =
            runProgram({"/bin/bash", "-c",
                        "set -o pipefail; " + std::string(PMENV_BINARY) + " stats --openmetrics" + form +
                            " | tee /dev/stderr | /usr/bin/promtool check metrics"},
                       environment());
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, HasSubstr("pmenv_engines{name=\"PMLoadEngineMai\"} "));
        EXPECT_THAT(outcome.err, HasSubstr("\npmenv_engines_cpu_seconds_total{name=\"PMLoadEngineMai\"} "));
        const auto contains = [&](const std::string& text) { return outcome.err.find(text) != std::string::npos; };
        EXPECT_EQ(contains("pid=\"" + std::to_string(engine.pid()) + "\""), form.find("per") != std::string::npos);
        EXPECT_EQ(contains("pmenv_machine_"), form.find("machine") != std::string::npos);
        EXPECT_EQ(outcome.err.substr(outcome.err.size() - 6), "# EOF\n");
    }
}

TEST(PmenvStats, ExpositionTellsTheVersion) {
    std::string version = run({"--version"}).out;  // "pmenv 1.0.0\n"
    version = version.substr(6, version.size() - 7);
    EXPECT_THAT(run({"stats", "--openmetrics"}).out, HasSubstr("pmenv_build_info{version=\"" + version + "\"} 1\n"));
}

// The value of a series in an exposition; -1 when it is not there.
double valueOfSeries(const std::string& text, const std::string& series) {
    for (const std::string& line : linesOf(text)) {
        if (line.compare(0, series.size() + 1, series + " ") == 0) return std::stod(line.substr(series.size()));
    }
    return -1;
}

// The engine gets what a busy machine leaves it, so its counter is compared with what the kernel accounts for it meanwhile.
TEST(PmenvStats, ExpositionCountsWhatTheKernelAccounts) {
    const LoadEngine engine("burn");
    const TempDir directory;
    const std::string path = directory / "pmenv.prom";
    const double before = secondsOfProcessor(engine.pid());
    EXPECT_EQ(run({"stats", "--openmetrics", "--per-process", "--duration", "3", "--output", path}).status, 0);
    const double used = secondsOfProcessor(engine.pid()) - before;
    const std::string labels = "{name=\"PMLoadEngineMai\",pid=\"" + std::to_string(engine.pid()) + "\"}";
    const double counted = valueOfSeries(readFileText(path), "pmenv_engine_cpu_seconds_total" + labels);
    EXPECT_GT(counted, 0.5 * used);
    EXPECT_LE(counted, used + 0.05);
    EXPECT_GT(valueOfSeries(readFileText(path), "pmenv_engine_held_back_seconds_total" + labels), 1);
    EXPECT_GT(valueOfSeries(readFileText(path), "pmenv_engine_memory_bytes" + labels), 1e5);
    EXPECT_GT(valueOfSeries(readFileText(path), "pmenv_watch_intervals_total"), 5);
}

// A collector sees a file that is replaced again and again while the engine ends.
TEST(PmenvStats, ExpositionKeepsTheCountersOfAnEngineThatHasEnded) {
    const TempDir directory;
    const std::string path = directory / "pmenv.prom";
    std::thread watch([&] { run({"stats", "--openmetrics", "--per-process", "--duration", "8", "--output", path}); });
    std::string labels;
    const auto counted = [&] {
        return std::filesystem::exists(path)
                   ? valueOfSeries(readFileText(path), "pmenv_engine_cpu_seconds_total" + labels)
                   : -1;
    };
    {
        const LoadEngine engine("burn");
        labels = "{name=\"PMLoadEngineMai\",pid=\"" + std::to_string(engine.pid()) + "\"}";
        EXPECT_TRUE(soon([&] { return counted() > 0; }));
    }
    const double atLeast = counted();
    watch.join();
    EXPECT_GE(counted(), atLeast);
    EXPECT_EQ(valueOfSeries(readFileText(path), "pmenv_engine_memory_bytes" + labels), -1) << "it runs no more";
}

TEST(PmenvStats, OutputReplacesTheFileInOneStep) {
    const TempDir directory;
    const std::string path = directory.writeFile("pmenv.prom", "old\n");
    const std::string link = directory / "link-to-the-old-one";
    std::filesystem::create_hard_link(path, link);
    const ProgramResult outcome = run({"stats", "--openmetrics", "--output", path});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(readFileText(path), StartsWith("# HELP "));
    EXPECT_EQ(readFileText(link), "old\n") << "the old file itself was not written to";

    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(status.st_mode & 0777, 0666 & ~mask) << "others may read it";
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
        names.insert(entry.path().filename());
    EXPECT_THAT(names, ElementsAre("link-to-the-old-one", "pmenv.prom")) << "no temporary file is left";
}

TEST(PmenvStats, OutputThatCannotBeWrittenLeavesNothingBehind) {
    const TempDir directory;
    directory.makeDirectory("taken");
    const ProgramResult outcome = run({"stats", "--openmetrics", "--output", directory / "taken"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "pmenv: cannot write " + directory / "taken: Is a directory\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);

    const ProgramResult nowhere = run({"stats", "--openmetrics", "--output", directory / "none/x"});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.err, "pmenv: cannot write " + directory / "none/x: No such file or directory\n");
}

// --- usage ----------------------------------------------------------------------------------------------------------

TEST(PmenvStats, OptionsThatDoNotGoTogetherAreRefused) {
    const struct {
        Words words;
        const char* error;
    } rows[] = {
        {{"--json", "--csv"}, "--json and --csv do not go together"},
        {{"--watch", "--openmetrics"}, "--watch and --openmetrics do not go together"},
        {{"--count", "2", "--duration", "5"}, "--count and --duration do not go together"},
        {{"--output", "x"}, "--output needs --openmetrics"},
        {{"--per-process", "--json"}, "--per-process needs --openmetrics"},
        {{"--machine"}, "--machine needs --openmetrics"},
        {{"--openmetrics", "--output", ""}, "--output needs the name of a file"},
        {{"--record", ""}, "--record needs the name of a file"},
        {{"--openmetrics", "--count", "2"}, "--openmetrics of more than one sample needs --output FILE"},
        {{"--openmetrics", "--duration", "2"}, "--openmetrics of more than one sample needs --output FILE"},
        {{"--verdict"}, "--verdict is now the command 'pmenv judge --duration SECONDS'"},
        {{"--verdict", "--duration", "60", "--json"}, "--verdict is now the command 'pmenv judge --duration SECONDS'"},
        {{"--interval", "0.5"}, "--interval needs a number from 1 to 86400, not '0.5'"},
        {{"--interval", "1s"}, "--interval needs a number from 1 to 86400, not '1s'"},
        {{"--interval", "nan"}, "--interval needs a number from 1 to 86400, not 'nan'"},
        {{"--count", "1.5"}, "--count needs a whole number from 0 to 1000000000, not '1.5'"},
        {{"--count", "-1"}, "--count needs a whole number from 0 to 1000000000, not '-1'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        const ProgramResult outcome = run({"stats"}, row.words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "pmenv: " + std::string(row.error) + "; see 'pmenv stats --help'\n");
    }
}

// --- watch ----------------------------------------------------------------------------------------------------------

constexpr char kDrawn[] = "q quits";  // stands on every screen
constexpr char kEnterScreen[] = "\x1b[?1049h\x1b[?25l";
constexpr char kLeaveScreen[] = "\x1b[?25h\x1b[?1049l";

termios settingsOf(const TerminalRun& run) {
    termios settings{};
    EXPECT_EQ(tcgetattr(run.descriptor(), &settings), 0);
    return settings;
}

bool same(const termios& left, const termios& right) {
    return left.c_iflag == right.c_iflag && left.c_oflag == right.c_oflag && left.c_cflag == right.c_cflag &&
           left.c_lflag == right.c_lflag &&
           std::equal(std::begin(left.c_cc), std::end(left.c_cc), std::begin(right.c_cc));
}

// The watch on a terminal whose settings were noted before, so that they can be compared afterwards. The shell around
// it keeps the terminal open. The next sample is an hour away, so whatever happens does not wait for it.
class PmenvWatch : public testing::Test {
protected:
    PmenvWatch()
        : run_({"/bin/bash", "-c", "read -r; \"$@\"; echo ended with $?; read -r", "bash", PMENV_BINARY, "stats",
                "--watch", "--interval", "3600"},
               environment(), 100, 30),
          before_(settingsOf(run_)) {
        run_.type("\n");
        EXPECT_TRUE(run_.waitFor(kDrawn));
    }

    // The process id of pmenv, the only child of the shell.
    pid_t watcher() const {
        const std::string shell = std::to_string(run_.pid());
        return std::stoi(readFileText("/proc/" + shell + "/task/" + shell + "/children"));
    }

    void expectTheTerminalAsItWas(const std::string& status) {
        ASSERT_TRUE(run_.waitFor("ended with " + status + "\r\n")) << run_.output();
        const std::size_t left = run_.output().rfind(kLeaveScreen);
        ASSERT_NE(left, std::string::npos);
        EXPECT_EQ(run_.output().find('\x1b', left + sizeof kLeaveScreen - 1), std::string::npos);
        EXPECT_TRUE(same(settingsOf(run_), before_));
    }

    TerminalRun run_;
    termios before_;
};

TEST_F(PmenvWatch, TakesTheTerminalOver) {
    EXPECT_THAT(run_.output(), HasSubstr(kEnterScreen));
    EXPECT_EQ(settingsOf(run_).c_lflag & (ICANON | ECHO), 0u);
    EXPECT_NE(settingsOf(run_).c_lflag & ISIG, 0u) << "Ctrl-C still works";
}

TEST_F(PmenvWatch, QLeavesTheTerminalAsItWas) {
    run_.type("q");
    expectTheTerminalAsItWas("0");
}

TEST_F(PmenvWatch, ControlCLeavesTheTerminalAsItWas) {
    run_.type("\x03");
    ASSERT_TRUE(run_.waitFor(kLeaveScreen));
    EXPECT_TRUE(soon([this] { return same(settingsOf(run_), before_); }));
}

TEST_F(PmenvWatch, TerminationLeavesTheTerminalAsItWas) {
    kill(watcher(), SIGTERM);
    expectTheTerminalAsItWas("143");
}

TEST_F(PmenvWatch, FollowsTheTerminalsSize) {
    const std::size_t first = run_.output().size();
    ASSERT_TRUE(run_.waitFor(kDrawn, first)) << "with the first percentages; the next drawing is an hour away";
    const std::size_t before = run_.output().size();
    run_.resize(40, 8);
    ASSERT_TRUE(run_.waitFor(kDrawn, before));
    const std::size_t begin = run_.output().find("\x1b[H", before);
    run_.resize(41, 8);
    ASSERT_TRUE(run_.waitFor("\x1b[H", begin + 3)) << "the next drawing";
    const std::string drawing = run_.output().substr(begin + 3, run_.output().find("\x1b[H", begin + 3) - begin - 3);
    const auto lines = linesOf(std::regex_replace(drawing, std::regex("\x1b\\[[0-9;?]*[A-Za-z]|\r"), ""));
    EXPECT_LE(lines.size(), 8u);
    for (const std::string& line : lines) {
        const auto columns = std::count_if(line.begin(), line.end(), [](char byte) { return (byte & 0xc0) != 0x80; });
        EXPECT_LE(columns, 40) << line;
    }
}

TEST(PmenvWatchInPlace, RedrawsWithEachSample) {
    TerminalRun run(pmenv({"stats", "--watch"}), environment(), 100, 30);
    ASSERT_TRUE(run.waitFor(kDrawn));
    const std::size_t first = run.output().size();
    EXPECT_TRUE(run.waitFor(kDrawn, first));
    EXPECT_EQ(run.output().find(kEnterScreen, first), std::string::npos) << "in place";
    run.type("Q");
    EXPECT_EQ(run.finish(), 0);
}

TEST(PmenvWatchEngines, ShowsEnginesWithTheirHistory) {
    const LoadEngine engine("burn");
    TerminalRun run(pmenv({"stats", "--watch"}), environment(), 100, 60);
    EXPECT_TRUE(run.waitFor(std::to_string(engine.pid())));
    EXPECT_TRUE(run.waitFor("\xe2\x96")) << "a history begins, with one of the blocks";
    EXPECT_TRUE(run.waitFor("! percentiles up to p")) << run.output();
    run.type("q");
    EXPECT_EQ(run.finish(), 0);
}

TEST(PmenvWatchPlain, PrintsTablesOnAPipe) {
    const ProgramResult outcome = run({"stats", "--watch", "--count", "2"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, Not(HasSubstr("\x1b")));
    EXPECT_THAT(outcome.out, StartsWith("TIME "));
    EXPECT_THAT(outcome.out, HasSubstr("\n\nTIME "));
}

TEST(PmenvWatchPlain, PrintsTablesOnADumbTerminal) {
    Environment dumb = environment();
    dumb["TERM"] = "dumb";
    dumb["NO_COLOR"] = "1";
    TerminalRun run(pmenv({"stats", "--watch", "--count", "1"}), dumb, 100, 30);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.output(), StartsWith("TIME "));
    EXPECT_THAT(run.output(), Not(HasSubstr("\x1b")));
}

// The same on a terminal emulator that interprets what is drawn.
class PmenvTmux : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(isInstalled("/usr/bin/tmux"));
        tmux({"-f", "/dev/null", "new-session", "-d", "-x", "90", "-y", "20", "/bin/bash --norc --noprofile"});
    }
    void TearDown() override {
        if (isInstalled("/usr/bin/tmux")) tmux({"kill-server"});
    }

    std::string tmux(Words words) const {
        words.insert(words.begin(), {"/usr/bin/tmux", "-S", directory_ / "socket"});
        return runProgram(words, {{"TMUX", nullptr},
                                  {"TERM", "xterm"},
                                  {"LC_ALL", "C.UTF-8"},
                                  {"PS1", "ready$ "},
                                  {"NO_COLOR", nullptr}})
            .out;
    }
    void type(const std::string& text) const { tmux({"send-keys", "-l", text}); }
    void enter(const std::string& command) const {
        type(command);
        tmux({"send-keys", "Enter"});
    }
    std::string screen() const { return tmux({"capture-pane", "-p"}); }
    bool shows(const std::string& text) const {
        return soon([&] { return screen().find(text) != std::string::npos; });
    }

    bool showsLine(const std::string& line) const {
        return soon([&] {
            const auto lines = linesOf(screen());
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        });
    }

    TempDir directory_;
};

TEST_F(PmenvTmux, DrawsFollowsTheSizeSuspendsAndRestores) {
    const LoadEngine engine("idle");
    enter("stty -g >" + directory_ / "before; echo before the watch");
    ASSERT_TRUE(showsLine("before the watch"));
    enter(std::string(PMENV_BINARY) + " stats --watch");
    ASSERT_TRUE(shows(kDrawn)) << screen();
    const auto wide = linesOf(screen());
    EXPECT_TRUE(std::regex_search(wide[1], std::regex("^[0-9]+ CPUs? +\\["))) << wide[1];
    EXPECT_TRUE(std::regex_search(wide[2], std::regex("^Memory +\\["))) << wide[2];
    EXPECT_TRUE(shows("\n" + std::string(7 - std::to_string(engine.pid()).size(), ' ') + std::to_string(engine.pid())));

    tmux({"resize-window", "-x", "44", "-y", "12"});
    ASSERT_TRUE(soon([&] {
        const auto lines = linesOf(screen());
        return lines.size() > 1 && lines[1].size() <= 44 && lines[1].find(" CPU") != std::string::npos;
    })) << screen();

    tmux({"send-keys", "C-z"});
    ASSERT_TRUE(shows("Stopped")) << screen();
    EXPECT_THAT(screen(), Not(HasSubstr(kDrawn)));
    enter("fg");
    ASSERT_TRUE(shows(kDrawn)) << screen();

    type("q");
    enter("clear; stty -g >" + directory_ / "after; echo after the watch");
    ASSERT_TRUE(showsLine("after the watch")) << screen();
    EXPECT_THAT(screen(), Not(HasSubstr(kDrawn)));
    EXPECT_EQ(readFileText(directory_ / "after"), readFileText(directory_ / "before"));
}

TEST_F(PmenvTmux, ScrollsWithArrowKeys) {
    const LoadEngine engines[] = {LoadEngine("idle"), LoadEngine("idle"), LoadEngine("idle"), LoadEngine("idle")};
    tmux({"resize-window", "-x", "80", "-y", "9"});
    enter(std::string(PMENV_BINARY) + " stats --watch --interval 3600");
    ASSERT_TRUE(shows(" 1-3 of ")) << screen();
    tmux({"send-keys", "Down"});
    EXPECT_TRUE(shows(" 2-4 of ")) << screen();
    tmux({"send-keys", "Home"});
    EXPECT_TRUE(shows(" 1-3 of ")) << screen();
    type("q");
}

}  // namespace
