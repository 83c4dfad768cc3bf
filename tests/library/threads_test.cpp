// What may be done on several threads at once, done at once.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "CommandLineArguments.h"
#include "EnvSettings.h"
#include "ExecutableDirectory.h"
#include "Lifetime.h"
#include "Logging.h"
#include "MachineStats.h"
#include "krenv.h"
#include "krs.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/ScopedTable.h"
#include "support/TempDir.h"

namespace {

constexpr int kThreads = 8;
constexpr std::chrono::milliseconds kTime{200};  // long enough for all of them to be stopped at any place

// Lets threads go when all of them have come.
class StartBarrier {
public:
    explicit StartBarrier(int threads) : missing_(threads) {}

    void wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        if (--missing_ == 0) {
            all_.notify_all();
        } else {
            all_.wait(lock, [this] { return missing_ == 0; });
        }
    }

private:
    std::mutex mutex_;  // guards missing_
    std::condition_variable all_;
    int missing_;
};

struct Rounds {
    std::string wrong;      // the first answer that was not empty
    std::vector<int> made;  // by each thread
};

// Runs `round` (its argument is the thread's number) over and over on threads that start together.
Rounds onThreads(const std::function<std::string(int)>& round) {
    StartBarrier start(kThreads);
    std::vector<std::string> answers(kThreads);
    Rounds rounds{{}, std::vector<int>(kThreads)};
    const auto run = [&](int number) {
        std::string& answer = answers[static_cast<std::size_t>(number)];
        start.wait();
        const auto end = std::chrono::steady_clock::now() + kTime;
        while (answer.empty() && std::chrono::steady_clock::now() < end) {
            answer = round(number);
            ++rounds.made[static_cast<std::size_t>(number)];
        }
    };
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) threads.emplace_back(run, number);
    for (std::thread& thread : threads) thread.join();
    for (const std::string& answer : answers) {
        if (rounds.wrong.empty()) rounds.wrong = answer;
    }
    return rounds;
}

// "" when they are equal.
std::string differs(const std::string& expected, const char* answer) {
    if (answer != nullptr && expected == answer) return {};
    return "'" + std::string(answer != nullptr ? answer : "null") + "' instead of '" + expected + "'";
}

// Settings, and files to find, for all threads; the log goes nowhere.
struct ThreadsTest : testing::Test {
    ThreadsTest() {
        dir.writeFile("found.txt");
        dir.writeFile("pressmark.ini",
                      "A = #(B) and $(THREADS_TEST)\nB = #(C)#(C)\nC = c\nPLACES = " + dir.path() + "\n");
        nLogging::gSetSink([](const nLogging::Record&) {});
        EXPECT_EQ(1, KRELoadIniFile((dir / "pressmark.ini").c_str()));
    }
    ~ThreadsTest() override { nLogging::gSetSink({}); }

    TempDir dir;
    const ScopedEnv variable{"THREADS_TEST", "text"};
    const std::string valueOfA = "cc and text";
};

std::string readSettings(const std::string& valueOfA) {
    KREnvContainerClass env;
    std::string wrong = differs(valueOfA, env.KREGetEnv("A"));
    if (wrong.empty()) wrong = differs(valueOfA, env.KREGetEnvValue("A"));
    if (wrong.empty() && !env.KREEnvDefined("A", "AND", true)) wrong = "A is not defined";
    const int table = nEnvSettings::gPressmarkIniTable();
    return wrong.empty() ? differs(valueOfA, nEnvSettings::gGetPropertyStream(table, "A").c_str()) : wrong;
}

std::string findFile(const std::string& file) {
    KREnvContainerClass env;
    const char* const end = nullptr;
    const std::string wrong = differs(file, env.KRPFindfile("found.txt", "$NO_SUCH_VARIABLE", "#PLACES", end));
    return wrong.empty() && env.KRPFindfile("lost.txt", "#PLACES", end) != nullptr ? "a lost file was found" : wrong;
}

void log(int number) {
    PM_LOG_RECORD(nLogging::Level::Error, "Threads", "threads_test", number) << "record " << number;
}

std::string useTables(int shared, int number) {
    const std::string mine = "value " + std::to_string(number);
    const ScopedTable own("[section]\nKEY = " + mine + "\n");
    const std::string wrong = differs(mine, KRSGetValue(own.handle(), "section.KEY"));
    if (!wrong.empty()) return wrong;
    return differs("shared", KRSGetValue(shared, "KEY"));
}

std::string discover() {
    std::vector<int> engines;
    pstat sample{};
    if (getSlavesList(engines, 0) != 1) return "no list";
    if (get_usage(getpid(), &sample) != 0) return "no sample";
    CPUUsage sampler(getpid());
    if (sampler.GetUsage() < 0.0) return "no usage";
    return getProcessRSS(getpid(), false) > 0 ? "" : "no memory";
}

}  // namespace

TEST_F(ThreadsTest, EachContainerReadsTheSettings) {
    EXPECT_EQ("", onThreads([&](int) { return readSettings(valueOfA); }).wrong);
}

TEST_F(ThreadsTest, OneContainerForEachThreadIsUsedAgainAndAgain) {
    std::vector<KREnvContainerClass> containers(kThreads);
    EXPECT_EQ("", onThreads([&](int number) {
                      return differs(valueOfA, containers[static_cast<std::size_t>(number)].KREGetEnv("A"));
                  }).wrong);
}

TEST_F(ThreadsTest, FilesAreSearchedForUnderOneLock) {
    EXPECT_EQ("", onThreads([&](int) { return findFile(dir / "found.txt"); }).wrong);
}

TEST_F(ThreadsTest, EveryRecordArrivesOnce) {
    LogCapture capture;
    const Rounds rounds = onThreads([](int number) {
        log(number);
        return "";
    });
    std::vector<int> count(kThreads);
    for (const std::string& text : capture.texts(nLogging::Level::Error)) ++count.at(std::stoul(text.substr(7)));
    EXPECT_EQ(rounds.made, count);
}

TEST_F(ThreadsTest, SinksAndLevelsChangeWhileOthersLog) {
    std::atomic<int> received{0};
    onThreads([&](int number) {
        if (number == 0) nLogging::gSetSink([&received](const nLogging::Record&) { ++received; });
        if (number == 1) nLogging::gEnable(nLogging::Level::Trace, received % 2 == 0);
        log(number);
        return "";
    });
    nLogging::gEnable(nLogging::Level::Trace, false);
    nLogging::gSetSink([](const nLogging::Record&) {});
    EXPECT_GT(received, kThreads);
}

TEST_F(ThreadsTest, TablesAreReadTogetherWhileOthersComeAndGo) {
    const ScopedTable shared("KEY = shared\n");
    EXPECT_EQ("", onThreads([&](int number) { return useTables(shared.handle(), number); }).wrong);
}

TEST_F(ThreadsTest, EnginesAreLookedForIntoSeparateVectors) {
    EXPECT_EQ("", onThreads([](int) { return discover(); }).wrong);
}

TEST_F(ThreadsTest, ArgumentsAndTheExecutablesDirectoryChangeWhileOthersAsk) {
    const char* const arguments[] = {"/bin/program", "an argument that is too long for a string without memory"};
    const std::string directory = "/a/directory/that/is/too/long/for/a/string/without/memory";
    nCommandLineArguments::gSet(2, arguments);
    n_debug::nExecutableDirectory::gInitialize(directory);
    EXPECT_EQ("", onThreads([&](int number) -> std::string {
                      if (number % 2 == 0) {
                          nCommandLineArguments::gSet(2, arguments);
                          n_debug::nExecutableDirectory::gInitialize(directory);
                      }
                      if (nCommandLineArguments::gCount() != 2) return "another number of arguments";
                      const std::string wrong = differs(arguments[1], nCommandLineArguments::gGet(1).c_str());
                      return wrong.empty() ? differs(directory, n_debug::nExecutableDirectory::gGet().c_str()) : wrong;
                  }).wrong);
}

TEST_F(ThreadsTest, MainScopesOpenAndObjectsAreRegisteredTogether) {
    struct Counted {
        Counted() { ++count(); }
        ~Counted() { --count(); }
        static int& count() {
            static int objects = 0;  // not atomic on purpose: the scope's lock guards it
            return objects;
        }
    };
    const char* const arguments[] = {"/bin/program"};
    onThreads([&](int number) {
        if (number % 2 == 0) {
            const nLifetime::MainScope scope(1, arguments);
        } else {
            const nLifetime::StaticObject<Counted> object;
        }
        return "";
    });
    EXPECT_EQ(0, Counted::count());
}

TEST_F(ThreadsTest, AllOfItAtOnce) {
    const ScopedTable shared("KEY = shared\n");
    EXPECT_EQ("", onThreads([&](int number) {
                      switch (number % 5) {
                          case 0:
                              return readSettings(valueOfA);
                          case 1:
                              return findFile(dir / "found.txt");
                          case 2:
                              return useTables(shared.handle(), number);
                          case 3:
                              return discover();
                          default:
                              log(number);
                              return std::string();
                      }
                  }).wrong);
}
