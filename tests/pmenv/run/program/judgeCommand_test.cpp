// judge with a command: the command behaves as if it had been started without pmenv, and the verdict follows.
//
// Most commands are too short for a verdict, so that what is compared does not depend on the machine.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "pmenv/PmenvTest.h"
#include "support/TerminalRun.h"

using json = nlohmann::json;
using testing::AnyOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr char kTooShort[] = "cannot tell: the watch was too short";

Words judging(Words command, const Words& options = {}) {
    Words words{PMENV_BINARY, "judge"};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back("--");
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

ProgramResult judged(Words command, const Words& options = {}) {
    return runProgram(judging(std::move(command), options), {{"NO_COLOR", "1"}});
}

ProgramResult judgedScript(const std::string& script, const Words& options = {}) {
    return judged({"/bin/sh", "-c", script}, options);
}

// A shell script in which "$0" is pmenv.
ProgramResult shell(const std::string& script) {
    return runProgram({"/bin/bash", "-c", script, PMENV_BINARY}, {{"NO_COLOR", "1"}});
}

// --- the exit code --------------------------------------------------------------------------------------------------

TEST(JudgeCommand, EndsWithTheExitCodeOfACommandThatFails) {
    for (const int code : {1, 2, 3, 42, 255}) {
        const ProgramResult result = judgedScript("exit " + std::to_string(code));
        EXPECT_EQ(result.status, code);
        EXPECT_THAT(result.err, HasSubstr("\nthe command ended with exit code " + std::to_string(code) + "\n"));
    }
}

TEST(JudgeCommand, EndsWithTheVerdictsExitCodeWhenTheCommandSucceeds) {
    const ProgramResult result = judgedScript("exit 0");
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, StartsWith(kTooShort));
    EXPECT_THAT(result.err, Not(HasSubstr("the command")));
}

TEST(JudgeCommand, EndsWith128AndTheSignalThatEndedTheCommand) {
    const std::pair<const char*, int> rows[] = {{"TERM", 143}, {"KILL", 137}, {"SEGV", 139}, {"INT", 130}};
    for (const auto& [signal, code] : rows) {
        const ProgramResult result = judgedScript("ulimit -c 0; kill -" + std::string(signal) + " $$");
        EXPECT_EQ(result.status, code);
        EXPECT_THAT(result.err, HasSubstr("\nthe command was ended by signal SIG" + std::string(signal) + "\n"));
    }
}

// A copy of the shell under a name of its own, so that it is the engine that is asked for, whatever else runs.
class JudgeNamedCommand : public testing::Test {
protected:
    JudgeNamedCommand() { std::filesystem::copy_file("/bin/dash", engine_); }

    ProgramResult burning(const Words& options, const std::string& end) const {
        Words all{"--engine", "an-own-burner"};
        all.insert(all.end(), options.begin(), options.end());
        return judged({engine_, "-c", "trap '" + end + "' USR1; { sleep 2.4; kill -USR1 $$; } & while :; do :; done"},
                      all);
    }

    const TempDir directory_;
    const std::string engine_ = directory_ / "an-own-burner";
};

// What the run is worth depends on what else this machine does meanwhile: pmenv may be woken late, too.
const char kWhatIsSpoiled[] = "(percentiles up to p|which percentiles can be believed cannot be told)";

TEST_F(JudgeNamedCommand, ASpoiledRunFailsThoughTheCommandSucceeds) {
    const std::string junit = directory_ / "verdict.xml";
    const ProgramResult result = burning({"--junit", junit}, "exit 0");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, ContainsRegex("^spoiled: " + std::string(kWhatIsSpoiled)));
    EXPECT_THAT(readFileText(junit), ContainsRegex("<failure message=\"" + std::string(kWhatIsSpoiled)));
}

TEST_F(JudgeNamedCommand, TheCommandsFailureGoesBeforeTheVerdict) {
    const ProgramResult result = burning({"--json", "--junit", "/no/such/directory/verdict.xml"}, "exit 42");
    EXPECT_EQ(result.status, 42);
    EXPECT_THAT(result.err, HasSubstr("\npmenv: cannot write /no/such/directory/verdict.xml: No such file"));
    const json verdict = json::parse(result.err.substr(0, result.err.find("\npmenv: ")));
    // Besides the shell that burns, its children have that name: one that waits, and one until it has become "sleep",
    // which can be seen and be gone before anything is known of it.
    double worst = 0;
    for (const json& engine : verdict.at("engines")) {
        const json& share = engine.at("heldBackShare");
        if (engine.at("name") == "an-own-burner" && share.is_number()) worst = std::max<double>(worst, share);
    }
    EXPECT_GT(worst, 0.8);
    EXPECT_EQ(verdict.at("verdict"), "spoiled");
    EXPECT_EQ(verdict.at("exitCode"), 3);
    EXPECT_EQ(verdict.at("commandExitCode"), 42);
}

TEST(JudgeCommand, AReportThatCannotBeWrittenIsAFailureOfItsOwn) {
    const ProgramResult result = judgedScript("exit 0", {"--junit", "/no/such/directory/verdict.xml"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, StartsWith(kTooShort));
    EXPECT_THAT(result.err, HasSubstr("\npmenv: cannot write /no/such/directory/verdict.xml: No such file"));
}

TEST(JudgeCommand, StandsInTheRecording) {
    const TempDir dir;
    judged({"/bin/true", "a b"}, {"--record", dir / "run"});
    EXPECT_THAT(readFileText(dir / "run"), HasSubstr("\"command\":[\"/bin/true\",\"a b\"]"));
}

TEST(JudgeCommand, ARunThatEndsInTheTimeToSkipTellsNothing) {
    const ProgramResult result = judgedScript("exit 0", {"--skip", "10"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err,
                StartsWith("cannot tell: the watch was too short: 0 s behind the 10 s that --skip leaves out"));
}

// --- a command that cannot be started -------------------------------------------------------------------------------

TEST(JudgeCommand, WhatCannotBeStartedIsToldAsShellsTellIt) {
    const TempDir directory;
    directory.writeFile("plain", "no program");
    const std::string plain = directory / "plain";
    const struct {
        std::string name;
        int code;
        std::string error;
    } rows[] = {
        {"no-such-program", 127, "cannot start 'no-such-program': no directory in PATH has it"},
        {"", 127, "cannot start '': no directory in PATH has it"},
        {"/no/such\n", 127, "cannot start '/no/such\\n': there is no such file"},
        {"/", 126, "cannot start '/': Permission denied"},
        {plain, 126, "cannot start '" + plain + "': Permission denied"},
    };
    for (const auto& row : rows) {
        const ProgramResult result = judged({row.name, "argument"});
        EXPECT_EQ(result.status, row.code) << row.name;
        EXPECT_EQ(result.err, "pmenv: " + row.error + "\n");
    }
}

TEST(JudgeCommand, WrongUsageIsRefusedBeforeAnythingStarts) {
    const TempDir directory;
    const std::string trace = directory / "started";
    const std::pair<Words, const char*> rows[] = {
        {{"--duration", "5"}, "--duration and a command do not go together: the watch ends with the command"},
        {{"--junit", ""}, "--junit needs the name of a file"},
        {{"--skip", "-1"}, "--skip needs a number from 0 to 1000000000, not '-1'"},
    };
    for (const auto& [options, error] : rows) {
        const ProgramResult result = judged({"/bin/sh", "-c", "echo >\"$0\"", trace}, options);
        EXPECT_EQ(result.status, 2) << error;
        EXPECT_EQ(result.err, "pmenv: " + std::string(error) + "; see 'pmenv judge --help'\n");
    }
    EXPECT_FALSE(std::filesystem::exists(trace));
}

// --- what the command gets ------------------------------------------------------------------------------------------

TEST(JudgeCommand, InputAndOutputArePassedByteForByte) {
    const ProgramResult result = shell(
        "cd \"$(mktemp -d)\" && head -c 300000 /dev/urandom >in && "
        "{ \"$0\" judge -- cat <in >out 2>verdict; cmp in out && rm -r \"$PWD\"; }");
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(JudgeCommand, WhatTheCommandDoesNotReadIsLeftToTheNext) {
    EXPECT_EQ(shell("printf 'a\nb\n' | { \"$0\" judge -- sleep 0.2 2>/dev/null; cat; }").out, "a\nb\n");
}

TEST(JudgeCommand, ArgumentsArePassedByteForByte) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
    const ProgramResult result = judged({"printf", "%s|", "--help", "--", "", bytes, "--json"});
    EXPECT_EQ(result.out, "--help|--||" + bytes + "|--json|");
}

// The same script with pmenv and without it, both started by a shell with unusual settings.
std::pair<std::string, std::string> withAndWithout(const std::string& prepare, const std::string& command) {
    const ProgramResult with = shell(prepare + " \"$0\" judge -- " + command);
    const ProgramResult without = shell(prepare + " " + command);
    EXPECT_EQ(with.status, 4) << with.err;
    EXPECT_EQ(without.status, 0) << without.err;
    return {with.out, without.out};
}

TEST(JudgeCommand, TheCommandIsSetUpAsIfStartedDirectly) {
    const std::string settings =
        "umask 027; cd /; export ODD=$'a\\nb'; ulimit -S -n 200; ulimit -S -c 0; exec nice -n 5 "
        "env --ignore-signal=USR1,CHLD,PIPE --block-signal=USR2,WINCH";
    const auto [with, without] = withAndWithout(
        settings,
        "/bin/bash -c 'umask; pwd; env | sort; ulimit -a; nice; grep -E \"Sig(Blk|Ign)\" /proc/self/status; "
        "cat /proc/self/oom_score_adj /proc/self/timerslack_ns'");
    EXPECT_EQ(with, without);
    EXPECT_THAT(with, HasSubstr("0027\n/\n"));
    EXPECT_THAT(with, HasSubstr("SigBlk:\t0000000008000800\n"));
}

TEST(JudgeCommand, TheCommandInheritsTheDescriptorsGivenAndNoOthers) {
    const auto [with, without] =
        withAndWithout("exec 7</dev/null 9>/dev/null;", "/bin/bash -c 'cd /proc/self/fd; echo *; readlink 7 9'");
    EXPECT_EQ(with, without);
    EXPECT_THAT(with, EndsWith("\n/dev/null\n/dev/null\n"));
}

TEST(JudgeCommand, StandardDescriptorsMayBeClosed) {
    const auto [with, without] =
        withAndWithout("exec 3>&1 <&- >&- 2>&-;", "/bin/bash -c 'cd /proc/self/fd; echo * >&3'");
    EXPECT_EQ(with, without);
    EXPECT_EQ(shell("\"$0\" judge -- sh -c 'exit 42' <&- >&- 2>&-").status, 42);
    EXPECT_EQ(shell("\"$0\" judge -- sh -c 'exit 42' 2>/dev/full").status, 42);
}

TEST(JudgeCommand, ADeafReaderOfTheVerdictDoesNotChangeTheExitCode) {
    const auto codeOf = [](const std::string& script) {
        return shell("exec 3>&1; { \"$0\" judge -- sh -c '" + script + "'; echo $? >&3; } 2>&1 >/dev/null | true").out;
    };
    EXPECT_EQ(codeOf("sleep 0.3; exit 42"), "42\n");
    EXPECT_EQ(codeOf("sleep 0.3"), "4\n");
}

// --- processes that the command starts ------------------------------------------------------------------------------

TEST(JudgeCommand, WhatTheCommandLeavesBehindIsNotWaitedFor) {
    const auto begin = std::chrono::steady_clock::now();
    const ProgramResult result = judgedScript("setsid sleep 100 >/dev/null 2>&1 & echo $!; exit 7");
    EXPECT_EQ(result.status, 7);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
    EXPECT_EQ(kill(std::stoi(result.out), SIGKILL), 0) << "it runs no more";
}

TEST(JudgeCommand, ProcessesLeftBehindBecomeNoZombies) {
    const ProgramResult result = judgedScript(
        "for i in 1 2 3 4 5 6 7 8 9; do (setsid true &) ; done\n"
        "i=0; while ps --ppid $PPID -o stat= | grep -q Z; do i=$((i + 1)); [ $i -lt 400 ] || exit 9; sleep 0.05; done\n"
        "exit 7");
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST(JudgeCommand, AThousandShortLivedChildrenAreNoTrouble) {
    const ProgramResult result =
        judged({"/bin/bash", "-c", "for ((i = 0; i < 1000; ++i)); do (:) & ((i % 50)) || wait; done; wait; exit 7"});
    EXPECT_EQ(result.status, 7) << result.err;
}

// In a process namespace of its own, where no engine of another test runs.
ProgramResult alone(const std::string& script) {
    return runProgram({"/usr/bin/unshare", "--user", "--map-root-user", "--pid", "--fork", "--mount-proc", "/bin/sh",
                       "-c", script, PMENV_BINARY},
                      {{"NO_COLOR", "1"}});
}

class JudgeCommandAlone : public testing::Test {
protected:
    void SetUp() override {
        if (alone("true").status != 0) GTEST_SKIP() << "no process namespace can be made here";
    }

    static std::vector<std::string> namesOf(const std::string& text) {
        std::vector<std::string> names;
        const json verdict = json::parse(text);
        for (const json& engine : verdict.at("engines")) names.push_back(engine.at("name"));
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(JudgeCommandAlone, AllThatTheCommandStartsAreEngines) {
    const ProgramResult result =
        alone("\"$0\" judge --json -- sh -c 'sleep 5 & (setsid tail -f /dev/null >/dev/null 2>&1 &); sleep 2.5'");
    // More than one "sh", when a child is seen before it becomes another program.
    EXPECT_THAT(namesOf(result.err), IsSupersetOf({"sh", "sleep", "sleep", "tail"}));
    EXPECT_THAT(json::parse(result.err).at("findings").dump(), Not(HasSubstr("\"ended\"")));
}

TEST_F(JudgeCommandAlone, TheProductsEnginesTakeThePlaceOfTheCommand) {
    const ProgramResult result = alone("\"$0\" judge --json -- sh -c '" LOAD_ENGINE " idle & sleep 2.5; kill $!'");
    EXPECT_EQ(namesOf(result.err), (std::vector<std::string>{"PMLoadEngineMai"}));
}

TEST_F(JudgeCommandAlone, EnginesThatAreNamedTakeThePlaceOfTheCommand) {
    const ProgramResult result =
        alone("\"$0\" judge --engine tail --json -- sh -c 'tail -f /dev/null & sleep 2.5; kill $!'");
    EXPECT_EQ(namesOf(result.err), (std::vector<std::string>{"tail"}));
}

// --- signals without a terminal -------------------------------------------------------------------------------------

// pmenv in the background, in a session of its own without a terminal or in a process group of its own.
class BackgroundRun {
public:
    enum class In { Session, Group };

    BackgroundRun(const Words& words, In in) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        pid_ = fork();
        if (pid_ == 0) become(words, in, ends[1]);
        close(ends[1]);
        output_ = ends[0];
    }
    ~BackgroundRun() {
        if (pid_ > 0) end();
        close(output_);
    }
    BackgroundRun(const BackgroundRun&) = delete;
    BackgroundRun& operator=(const BackgroundRun&) = delete;

    pid_t pid() const { return pid_; }
    void send(int signal) const { kill(pid_, signal); }

    /// Waits until `wanted` appears in standard output or error. Returns all that was printed so far.
    const std::string& waitFor(const std::string& wanted) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (text_.find(wanted) == std::string::npos && std::chrono::steady_clock::now() < end) {
            pollfd ready{output_, POLLIN, 0};
            if (poll(&ready, 1, 1000) > 0 && !readSome()) break;
        }
        EXPECT_THAT(text_, HasSubstr(wanted));
        return text_;
    }

    /// Waits until it stops or ends: its exit code, minus the signal that ended it, or 1000 and the one that stopped it.
    int wait() {
        int status = 0;
        if (waitpid(pid_, &status, WUNTRACED) != pid_) return -1000;
        if (WIFSTOPPED(status)) return 1000 + WSTOPSIG(status);
        pid_ = -1;
        while (readSome()) {
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    const std::string& text() const { return text_; }

private:
    [[noreturn]] static void become(const Words& words, In in, int output) {
        if (in == In::Session) {
            setsid();
        } else {
            setpgid(0, 0);
        }
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        std::vector<char*> argv;
        for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(126);
    }

    // A test that has failed leaves nothing behind either.
    void end() {
        runProgram({"/usr/bin/pkill", "-KILL", "-P", std::to_string(pid_)});
        send(SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    bool readSome() {
        char buffer[4096];
        const ssize_t count = read(output_, buffer, sizeof buffer);
        if (count > 0) text_.append(buffer, static_cast<std::size_t>(count));
        return count > 0;
    }

    pid_t pid_ = -1;
    int output_ = -1;
    std::string text_;
};

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
    return count;
}

// Says its process id, then each signal that it gets; USR1 ends it.
constexpr char kListener[] =
    "use strict; $| = 1; for my $name (qw(INT TERM HUP QUIT)) { $SIG{$name} = sub { print \"got $name\\n\" } }\n"
    "$SIG{USR1} = sub { exit 7 }; print \"ready $$\\n\"; sleep 1 while 1;";

int idBehind(const std::string& text, const std::string& word) {
    return std::stoi(text.substr(text.find(word) + word.size()));
}

TEST(JudgeCommand, SignalsArePassedOnOnce) {
    for (const auto in : {BackgroundRun::In::Session, BackgroundRun::In::Group}) {
        BackgroundRun run(judging({"/usr/bin/perl", "-e", kListener}), in);
        const int listener = idBehind(run.waitFor("ready "), "ready ");
        const std::pair<int, const char*> rows[] = {
            {SIGINT, "got INT"}, {SIGTERM, "got TERM"}, {SIGHUP, "got HUP"}, {SIGQUIT, "got QUIT"}};
        for (const auto& [signal, answer] : rows) {
            run.send(signal);
            run.waitFor(answer);
        }
        kill(listener, SIGUSR1);
        EXPECT_EQ(run.wait(), 7);
        for (const auto& [signal, answer] : rows) EXPECT_EQ(countOf(run.text(), answer), 1u) << answer;
        EXPECT_THAT(run.text(), HasSubstr(kTooShort));
    }
}

TEST(JudgeCommand, ASignalThatEndsTheCommandIsTold) {
    BackgroundRun run(judging({"/bin/sh", "-c", "echo ready; exec sleep 100"}), BackgroundRun::In::Session);
    run.waitFor("ready");
    run.send(SIGTERM);
    EXPECT_EQ(run.wait(), 143);
    EXPECT_THAT(run.text(), HasSubstr("the command was ended by signal SIGTERM"));
}

char stateOf(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    return text.empty() ? '-' : text[text.rfind(')') + 2];
}

bool reaches(int pid, char state) {
    for (int i = 0; i < 600; ++i) {
        if (stateOf(pid) == state) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

TEST(JudgeCommand, StopAndContinueReachBoth) {
    BackgroundRun run(judging({"/usr/bin/perl", "-e", kListener}), BackgroundRun::In::Group);
    const int listener = idBehind(run.waitFor("ready "), "ready ");
    for (int i = 0; i < 2; ++i) {
        run.send(SIGTSTP);
        EXPECT_EQ(run.wait(), 1000 + SIGTSTP);
        EXPECT_EQ(stateOf(listener), 'T');
        run.send(SIGCONT);
        EXPECT_TRUE(reaches(listener, 'S'));
    }
    kill(listener, SIGSTOP);
    run.waitFor("the command has been stopped by SIGSTOP");  // which was not a request to stop both any more
    kill(listener, SIGCONT);
    kill(listener, SIGUSR1);
    EXPECT_EQ(run.wait(), 7);
}

// Nobody could continue pmenv there.
TEST(JudgeCommand, ARequestToStopIsUndoneWhereNoShellLooksAfterPmenv) {
    BackgroundRun run(judging({"/usr/bin/perl", "-e", kListener}), BackgroundRun::In::Session);
    const int listener = idBehind(run.waitFor("ready "), "ready ");
    run.send(SIGTSTP);
    run.send(SIGTERM);
    run.waitFor("got TERM");
    kill(listener, SIGUSR1);
    EXPECT_EQ(run.wait(), 7);
}

TEST(JudgeCommand, ACommandThatStopsItselfIsToldAndWatchedOn) {
    for (const auto in : {BackgroundRun::In::Session, BackgroundRun::In::Group}) {
        BackgroundRun run(judging({"/bin/sh", "-c", "echo pid $$; kill -STOP $$; exit 7"}), in);
        run.waitFor("the command has been stopped by SIGSTOP; SIGCONT makes it go on\n");
        kill(idBehind(run.text(), "pid "), SIGCONT);
        EXPECT_EQ(run.wait(), 7);
        EXPECT_EQ(countOf(run.text(), "has been stopped"), 1u);
    }
}

// --- on a terminal --------------------------------------------------------------------------------------------------

TEST(JudgeCommandOnATerminal, CtrlCReachesTheCommandOnce) {
    TerminalRun run(judging({"/usr/bin/perl", "-e", kListener}), {{"NO_COLOR", "1"}}, 100, 30);
    ASSERT_TRUE(run.waitFor("ready "));
    run.type("\x03");
    ASSERT_TRUE(run.waitFor("got INT"));
    kill(run.pid(), SIGTERM);
    ASSERT_TRUE(run.waitFor("got TERM"));
    run.type("\x1c");
    ASSERT_TRUE(run.waitFor("got QUIT"));
    kill(idBehind(run.output(), "ready "), SIGUSR1);
    EXPECT_EQ(run.finish(), 7);
    EXPECT_EQ(countOf(run.output(), "got INT"), 1u);
    EXPECT_THAT(run.output(), HasSubstr(kTooShort));
}

TEST(JudgeCommandOnATerminal, TheCommandHasTheForeground) {
    TerminalRun run(judging({"/bin/sh", "-c", "echo $(ps -o pgid= -p $$) $(ps -o tpgid= -p $$) $$ end"}), {}, 100, 30);
    run.finish();
    EXPECT_TRUE(std::regex_search(run.output(), std::regex("^([0-9]+) \\1 \\1 end"))) << run.output();
}

// An interactive shell, as a user has it, with pmenv in $PMENV.
class JudgeCommandInAShell : public testing::Test {
protected:
    JudgeCommandInAShell()
        : shell_({"/bin/bash", "--norc", "--noprofile", "-i"},
                 {{"PMENV", PMENV_BINARY}, {"NO_COLOR", "1"}, {"PS1", "% "}, {"TERM", "dumb"}, {"HISTFILE", nullptr}},
                 100, 50) {
        EXPECT_TRUE(shell_.waitFor("% "));
    }

    void type(const std::string& keys) {
        seen_ = shell_.output().size();
        shell_.type(keys);
    }
    /// Waits for what is printed behind the last keys that were typed. Words that were typed as well are of no use.
    bool shows(const std::string& wanted) { return shell_.waitFor(wanted, seen_); }
    std::string output() const { return shell_.output().substr(seen_); }

    /// The stopped command goes on in the foreground, where it reads its line and ends.
    void bringToForeground() {
        type("fg\n");
        ASSERT_TRUE(shows("judge")) << shell_.output();
        type("a line\n");
        ASSERT_TRUE(shows("<a line>")) << shell_.output();
        ASSERT_TRUE(shows("% ")) << shell_.output();
        type("echo co\"\"de=$?\n");
        EXPECT_TRUE(shows("code=9")) << shell_.output();
        EXPECT_THAT(shell_.output(), Not(HasSubstr("has been stopped"))) << "the shell tells that";
    }

    void leave() {
        type("exit 0\n");
        EXPECT_EQ(shell_.finish(), 0) << shell_.output();
    }

    TerminalRun shell_;
    std::size_t seen_ = 0;
};

TEST_F(JudgeCommandInAShell, CtrlZStopsBothAndFgContinuesBoth) {
    type("$PMENV judge -- /bin/sh -c 'echo re\"\"ady; read line; echo \"<$line>\"; exit 9'\n");
    ASSERT_TRUE(shows("ready")) << shell_.output();
    type("\x1a");
    ASSERT_TRUE(shows("Stopped")) << shell_.output();
    type("echo in be\"\"tween\n");
    ASSERT_TRUE(shows("in between")) << shell_.output();
    bringToForeground();
    leave();
}

TEST_F(JudgeCommandInAShell, ACommandInTheBackgroundThatReadsTheTerminalIsStopped) {
    type("$PMENV judge -- /bin/sh -c 'read line; echo \"<$line>\"; exit 9' &\n");
    ASSERT_TRUE(shows("% ")) << shell_.output();
    type("until jobs | grep -q Sto; do sleep 0.1; done; jobs\n");
    ASSERT_TRUE(shows("Stopped")) << shell_.output();
    bringToForeground();
    leave();
}

// The shell's job is the whole pipeline, so that the command gets the terminal only when it reads from it. (It becomes
// `sleep` by itself: a shell that starts one can miss a Ctrl-C that comes while it does.)
TEST_F(JudgeCommandInAShell, InAPipelineTheCommandGetsTheTerminalWhenItReads) {
    type("$PMENV judge -- /bin/sh -c 'read line; echo \"<$line>\"; exec sleep 100' | cat\n");
    type("a line\n");
    ASSERT_TRUE(shows("<a line>")) << shell_.output();
    type("\x03");
    ASSERT_TRUE(shows("% ")) << shell_.output();
    type("echo co\"\"de=${PIPESTATUS[0]}\n");
    EXPECT_TRUE(shows("code=130")) << shell_.output();
    leave();
}

TEST_F(JudgeCommandInAShell, AfterACommandThatCannotBeStartedTheShellHasTheTerminal) {
    type("$PMENV judge -- /no/such; echo co\"\"de=$?\n");
    ASSERT_TRUE(shows("code=127")) << shell_.output();
    type("read -p wai\"\"ting line\n");
    ASSERT_TRUE(shows("waiting")) << shell_.output();
    type("a line\n");
    type("echo \"<$line>\"\n");
    EXPECT_TRUE(shows("<a line>")) << shell_.output();
    leave();
}

}  // namespace
