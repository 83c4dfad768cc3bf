// judge as its users run it: real processes that idle, work without a pause, are stopped, throttled and killed.
//
// Other tests have load engines at the same time, so that each looks at its own engine and not at the whole verdict.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "pmenv/PmenvTest.h"
#include "support/LoadEngine.h"
#include "support/Schema.h"
#include "support/TerminalRun.h"

using json = nlohmann::json;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

ProgramResult judge(Words words) {
    words.insert(words.begin(), {PMENV_BINARY, "judge"});
    return runProgram(words, {{"NO_COLOR", "1"}});
}

json watchedJson(Words words) {
    words.insert(words.end(), {"--json"});
    const ProgramResult result = judge(std::move(words));
    const json judged = json::parse(result.out);
    EXPECT_EQ(judged.at("exitCode"), result.status);
    return judged;
}

json engineOf(const json& judged, int pid) {
    for (const json& engine : judged.at("engines")) {
        if (engine.at("pid") == pid) return engine;
    }
    ADD_FAILURE() << "engine " << pid << " was not seen";
    return {};
}

std::vector<std::string> reasonsOf(const json& engine) {
    std::vector<std::string> reasons;
    for (const json& interval : engine.at("intervals")) reasons.push_back(interval.at("reason"));
    return reasons;
}

void pauseFor(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

// --- engines --------------------------------------------------------------------------------------------------------

TEST(PmenvJudge, AnIdleEngineIsNotHeldBack) {
    const LoadEngine idle("idle");
    const json judged = watchedJson({"--duration", "2"});
    const json engine = engineOf(judged, idle.pid());
    EXPECT_TRUE(engine.at("readable"));
    EXPECT_THAT(reasonsOf(engine), Each("stolen")) << "what a hypervisor takes makes idle engines late as well";
    EXPECT_GT(engine.at("parts").at("slack"), 0.8 * judged.at("seconds").get<double>());
}

TEST(PmenvJudge, AThreadThatNeverPausesIsHeldBack) {
    const LoadEngine busy("burn");
    const json judged = watchedJson({"--duration", "3"});
    const json engine = engineOf(judged, busy.pid());
    EXPECT_GT(engine.at("heldBackShare"), 0.8) << "where a hypervisor takes much, the first interval is in doubt";
    EXPECT_EQ(engine.at("thread").at("tid"), busy.pid());
    EXPECT_THAT(reasonsOf(engine), Contains(AnyOf("ownWork", "otherPrograms", "crowded", "stolen")));
    EXPECT_EQ(judged.at("verdict"), "spoiled");
    EXPECT_EQ(judged.at("exitCode"), 3);
    EXPECT_LT(judged.at("believedPercentile"), 20);
}

TEST(PmenvJudge, AThreadThatSendsNoLoadCanBeLeftOut) {
    const LoadEngine busy("burn");
    const json engine = engineOf(watchedJson({"--duration", "2", "--ignore-thread", "PMLoadEngineMain"}), busy.pid());
    EXPECT_FALSE(engine.at("readable"));  // none of its threads counts
    EXPECT_TRUE(engine.at("heldBackShare").is_null());
}

TEST(PmenvJudge, AStoppedEngineIsHeldBack) {
    const LoadEngine idle("idle");
    std::chrono::duration<double> stopped{};
    std::thread stopper([&] {
        pauseFor(1);
        const auto begin = std::chrono::steady_clock::now();
        kill(idle.pid(), SIGSTOP);
        pauseFor(1);
        kill(idle.pid(), SIGCONT);
        stopped = std::chrono::steady_clock::now() - begin;
    });
    const json engine = engineOf(watchedJson({"--duration", "4"}), idle.pid());
    stopper.join();
    EXPECT_NEAR(engine.at("heldBackSeconds"), stopped.count(), 0.6);
    EXPECT_THAT(reasonsOf(engine), Contains("stopped"));
}

TEST(PmenvJudge, AnEngineThatIsKilledIsToldWithItsSignal) {
    LoadEngine idle("idle");
    const int pid = idle.pid();
    std::thread killer([&idle] {
        pauseFor(1.5);
        idle.stop();
    });
    const json judged = watchedJson({"--duration", "4"});
    killer.join();
    EXPECT_TRUE(engineOf(judged, pid).at("ended"));
    for (const json& finding : judged.at("findings")) {
        if (finding.at("pid") != pid || (finding.at("kind") != "ended" && finding.at("kind") != "replaced")) continue;
        EXPECT_NEAR(finding.at("since"), 1.5, 1);
        // Kernels before 6.15 do not tell how a process ended whose parent has asked already.
        EXPECT_THAT(finding.at("text"), AnyOf(HasSubstr("SIGKILL"), HasSubstr("how is not known")));
        return;
    }
    ADD_FAILURE() << "the end was not told: " << judged.dump(1);
}

// A control group with a quota of a tenth of a processor, of either version; removed in the end. It goes before everything
// else on the machine, so that only the quota keeps its members waiting, however many tests run beside this one.
class Quota {
public:
    Quota() {
        if (make("/sys/fs/cgroup/cpu/", "cpu.cfs_quota_us", "10000") ||
            make("/sys/fs/cgroup/cpu,cpuacct/", "cpu.cfs_quota_us", "10000") ||
            make("/sys/fs/cgroup/", "cpu.max", "10000 100000")) {
            if (!write("cpu.shares", "262144")) write("cpu.weight", "10000");
            return;
        }
        directory_.clear();
    }
    ~Quota() {
        for (int i = 0; i < 100 && !directory_.empty() && rmdir(directory_.c_str()) != 0; ++i) pauseFor(0.02);
    }
    Quota(const Quota&) = delete;
    Quota& operator=(const Quota&) = delete;

    bool possible() const { return !directory_.empty(); }
    bool add(int pid) const { return write("cgroup.procs", std::to_string(pid)); }

private:
    bool make(const std::string& above, const std::string& file, const std::string& quota) {
        directory_ = above + "pmenv-judge-" + std::to_string(getpid());
        if (mkdir(directory_.c_str(), 0755) != 0) return false;
        if (access((directory_ + "/" + file).c_str(), W_OK) == 0 && write(file, quota)) return true;
        rmdir(directory_.c_str());
        return false;
    }

    bool write(const std::string& file, const std::string& text) const {
        std::ofstream out(directory_ + "/" + file, std::ios::in);  // only a file that is there
        out << text;
        return static_cast<bool>(out.flush());
    }

    std::string directory_;
};

TEST(PmenvJudge, AThrottledEngineIsToldWithItsQuota) {
    const Quota quota;
    if (!quota.possible()) GTEST_SKIP() << "no control group with a quota can be made here";
    LoadEngine busy("burn");
    ASSERT_TRUE(quota.add(busy.pid()));
    const json judged = watchedJson({"--duration", "3"});
    const json engine = engineOf(judged, busy.pid());
    busy.stop();
    EXPECT_GT(engine.at("heldBackShare"), 0.9);
    EXPECT_THAT(reasonsOf(engine), Contains("quota"));
    EXPECT_GT(engine.at("parts").at("throttled"), engine.at("parts").at("waiting"));
    EXPECT_LT(engine.at("cpuSeconds"), 1);
    for (const json& finding : judged.at("findings")) {
        if (finding.at("kind") != "quota") continue;
        EXPECT_THAT(finding.at("text"), HasSubstr("(0.10 processors) was used up"));
    }
}

// --- whom to watch --------------------------------------------------------------------------------------------------

TEST(PmenvJudge, WatchesAProcessWithWhatItStarts) {
    const ProgramResult started =
        runProgram({"/bin/sh", "-c", "sleep 4 & \"$0\" judge --pid $$ --duration 2 --json", PMENV_BINARY}, {});
    std::size_t sleeps = 0;
    const json judged = json::parse(started.out);
    for (const json& engine : judged.at("engines")) sleeps += engine.at("name") == "sleep" ? 1 : 0;
    EXPECT_EQ(sleeps, 1u);
}

TEST(PmenvJudge, WatchesProgramsByName) {
    const TempDir dir;
    std::filesystem::copy_file("/bin/sleep", dir / "a-load-generator-of-others");
    const ProgramResult started =
        runProgram({"/bin/sh", "-c", "\"$0\" 4 & \"$1\" judge --engine a-load-generator-of-others --duration 2 --json",
                    dir / "a-load-generator-of-others", PMENV_BINARY},
                   {});
    EXPECT_THAT(started.out, HasSubstr("\"name\": \"a-load-generato\""));
}

TEST(PmenvJudge, ANameThatIsNeverSeenIsNotClean) {
    const ProgramResult result = judge({"--engine", "no-such-program", "--duration", "2"});
    EXPECT_THAT(result.status, AnyOf(3, 4));
    EXPECT_THAT(result.out, HasSubstr("no process named 'no-such-program' was seen"));
}

TEST(PmenvJudge, MissingEnginesSpoilTheRun) {
    const json judged = watchedJson({"--engines", "100000", "--duration", "2", "--pid", std::to_string(getpid())});
    EXPECT_EQ(judged.at("verdict"), "spoiled");
}

// --- the watch ------------------------------------------------------------------------------------------------------

TEST(PmenvJudge, SaysWhatItWatchesOnceOnAPipe) {
    const ProgramResult result = judge({"--duration", "2", "--engine", "wrk", "--pid", "1"});
    EXPECT_THAT(result.err,
                StartsWith("pmenv: watching load engines named PMLoadEngineMai, wrk, process 1 and what it starts for "
                           "2 s, until "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    EXPECT_EQ(result.err.find('\r'), std::string::npos);
}

TEST(PmenvJudge, ANameThatIsAskedForCannotControlTheTerminal) {
    const ProgramResult result = judge({"--duration", "2", "--engine", "no\x1b[2Jsuch"});
    EXPECT_THAT(result.err, HasSubstr(", no\\x1b[2Jsuch for 2 s"));
    EXPECT_THAT(result.out, HasSubstr("no process named 'no\\x1b[2Jsuch' was seen\n"));
    EXPECT_EQ((result.out + result.err).find('\x1b'), std::string::npos);
}

TEST(PmenvJudge, SignalsEndTheWatchWithAVerdict) {
    const LoadEngine idle("idle");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        TerminalRun run({PMENV_BINARY, "judge"}, {{"NO_COLOR", "1"}}, 120, 50);
        pauseFor(3);
        kill(run.pid(), signal);
        EXPECT_THAT(run.finish(), AnyOf(0, 3, 4)) << signal;
        EXPECT_THAT(run.output(), HasSubstr("watched ")) << signal;
        EXPECT_THAT(run.output(), HasSubstr("\r\033[K")) << signal;  // counting on a terminal
    }
}

TEST(PmenvJudge, AWatchThatIsEndedTooEarlyTellsNothing) {
    const LoadEngine idle("idle");
    TerminalRun run({PMENV_BINARY, "judge", "--duration", "600"}, {{"NO_COLOR", "1"}}, 120, 50);
    pauseFor(0.7);
    kill(run.pid(), SIGTERM);
    EXPECT_EQ(run.finish(), 4);
    EXPECT_THAT(run.output(), HasSubstr("cannot tell: the watch was too short"));
}

TEST(PmenvJudge, WrongUsageIsRefused) {
    const struct {
        Words words;
        const char* error;
    } rows[] = {
        {{"--duration", "1"}, "--duration needs a number from 2 to 1000000000, not '1'"},
        {{"--percentile", "101"}, "--percentile needs a number from 0 to 100, not '101'"},
        {{"--pid", "0"}, "--pid needs a whole number from 1 to 4194304, not '0'"},
        {{"--engine", ""}, "--engine needs a name"},
        {{"--sustain", "5"}, "--sustain needs --cpu-limit or --engine-limit"},
        {{"--tolerance", "0"}, "--tolerance needs a number from 1 to 60000, not '0'"},
    };
    for (const auto& row : rows) {
        const ProgramResult result = judge(row.words);
        EXPECT_EQ(result.status, 2) << row.error;
        EXPECT_EQ(result.err, "pmenv: " + std::string(row.error) + "; see 'pmenv judge --help'\n");
    }
}

// --- the schema -----------------------------------------------------------------------------------------------------

TEST(PmenvJudge, JsonIsAsTheSchemaDescribes) {
    const LoadEngine busy("burn");
    expectAsDescribed(watchedJson({"--duration", "2", "--cpu-limit", "0", "--sustain", "0"}), JUDGE_SCHEMA);
    expectAsDescribed(watchedJson({"--duration", "2", "--engine", "none"}), JUDGE_SCHEMA);
}

}  // namespace
