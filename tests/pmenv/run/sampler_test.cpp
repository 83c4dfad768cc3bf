// Sampler: samples of a machine and of an engine whose files are made by hand. The library finds the engine, a real process,
// in the real /proc.
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "figures.h"
#include "support/FakeKernel.h"
#include "support/LoadEngine.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SamplerTest : public testing::Test {
protected:
    SamplerTest() {
        kernel_.write("/proc/stat", "cpu  100 0 100 800 0 0 0 0 0 0\n");
        kernel_.write("/proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: 300 kB\nSwapTotal: 50 kB\nSwapFree: 20 kB\n");
        runEngine(1);
    }

    std::string engineFile(const std::string& name) const {
        return "/proc/" + std::to_string(process_.pid()) + "/" + name;
    }

    // The engine's files, when it has used so many seconds of a processor.
    void runEngine(double ran, char state = 'S', const std::string& name = "PMLoadEngineMai") {
        FakeKernel::Thread thread;
        thread.pid = thread.tid = process_.pid();
        thread.name = name;
        thread.state = state;
        thread.ran = ran;
        kernel_.run(thread);
        kernel_.write(engineFile("statm"), "1000 25 3 1 0 9 0\n");
    }

    // A sample two seconds after the last one.
    Figures sampleAfter(double ran) {
        kernel_.now += 2;
        runEngine(ran);
        return sampler_.take();
    }

    const LoadEngine process_{"idle"};
    FakeKernel kernel_;
    Sampler sampler_;
};

// --- the machine ----------------------------------------------------------------------------------------------------

TEST_F(SamplerTest, TellsWhatTheMachineHas) {
    struct sysinfo facts {};
    ASSERT_EQ(sysinfo(&facts), 0);
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);

    const Figures figures = sampler_.take();
    EXPECT_EQ(figures.host, host);
    EXPECT_EQ(figures.processors, sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_EQ(figures.memoryBytes, std::uint64_t{facts.totalram} * facts.mem_unit);
    EXPECT_EQ(figures.swapBytes, std::uint64_t{facts.totalswap} * facts.mem_unit);
    EXPECT_GT(figures.freeBytes, 0u);
    EXPECT_LT(figures.freeBytes, figures.memoryBytes);
    EXPECT_EQ(figures.availableBytes, 300u * 1024);
    EXPECT_EQ(figures.swapUsedBytes, 30u * 1024);
    EXPECT_THAT(figures.warnings, IsEmpty());
}

TEST_F(SamplerTest, KnowsWhenASampleWasTaken) {
    const auto before = std::chrono::system_clock::now();
    const Figures first = sampler_.take();
    EXPECT_GE(first.time, before);
    EXPECT_LE(first.time, std::chrono::system_clock::now());
    EXPECT_GE(first.seconds, 0);
    EXPECT_LT(first.seconds, 600) << "since the sampler was made";
    const Figures second = sampler_.take();
    EXPECT_GT(second.seconds, first.seconds);
    EXPECT_LT(second.seconds, sampler_.seconds());
}

TEST_F(SamplerTest, TheMachinesPercentageIsKnownFromTheSecondSampleOn) {
    EXPECT_EQ(sampler_.take().cpuPercent, std::nullopt);
    kernel_.write("/proc/stat", "cpu  125 0 125 950 0 0 0 0 0 0\n");
    EXPECT_EQ(sampler_.take().cpuPercent, 25.0);
    kernel_.write("/proc/stat", "cpu  225 0 125 950 0 0 0 0 0 0\n");
    EXPECT_EQ(sampler_.take().cpuPercent, 100.0) << "since the sample before";
}

TEST_F(SamplerTest, AMachineThatCannotBeReadHasAWarning) {
    sampleAfter(1);
    kernel_.hide("/proc/stat");
    const Figures blind = sampleAfter(1);
    EXPECT_EQ(blind.cpuPercent, std::nullopt);
    EXPECT_THAT(blind.warnings, ElementsAre("cannot read /proc/stat: Permission denied"));
    kernel_.show("/proc/stat");
    EXPECT_EQ(sampleAfter(1).cpuPercent, std::nullopt) << "there is nothing to compare it with";
    kernel_.write("/proc/stat", "cpu  200 0 100 900 0 0 0 0 0 0\n");
    EXPECT_EQ(sampleAfter(1).cpuPercent, 50.0);

    kernel_.hide("/proc/meminfo");
    const Figures figures = sampleAfter(1);
    EXPECT_EQ(figures.availableBytes, std::nullopt);
    EXPECT_EQ(figures.swapUsedBytes, std::nullopt);
    EXPECT_THAT(figures.warnings, ElementsAre("cannot read /proc/meminfo: Permission denied"));
}

// --- engines --------------------------------------------------------------------------------------------------------

TEST_F(SamplerTest, AnEnginesPercentageIsKnownFromItsSecondSampleOn) {
    const Figures first = sampler_.take();
    ASSERT_EQ(first.engines.size(), 1u);
    EXPECT_EQ(first.engines[0].processId, process_.pid());
    EXPECT_EQ(first.engines[0].name, "PMLoadEngineMai");
    EXPECT_EQ(first.engines[0].startTicks, 5000u);
    EXPECT_EQ(first.engines[0].residentBytes, 25u * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
    EXPECT_EQ(first.engines[0].cpuPercent, std::nullopt);
    EXPECT_EQ(sampleAfter(2).engines.at(0).cpuPercent, 50.0);
    EXPECT_EQ(sampleAfter(2.5).engines.at(0).cpuPercent, 25.0) << "since the sample before";
}

// Reading takes time too, and a program that is held up meanwhile must not take that for work.
TEST_F(SamplerTest, AnEnginesPercentageIsOfTheLongestTimeBetweenTwoSamples) {
    kernel_.before = [this](const std::string& path) {
        if (path == engineFile("stat")) kernel_.now += 0.5;
    };
    sampler_.take();                                                // from 1000 to 1000.5
    EXPECT_EQ(sampleAfter(2).engines.at(0).cpuPercent, 100 / 3.0);  // from 1002.5 to 1003
}

TEST_F(SamplerTest, AnEngineWhoseMemoryCannotBeReadIsShown) {
    kernel_.remove(engineFile("statm"));
    const Figures figures = sampler_.take();
    ASSERT_EQ(figures.engines.size(), 1u);
    EXPECT_EQ(figures.engines[0].residentBytes, std::nullopt);
    EXPECT_THAT(figures.warnings, IsEmpty());
}

TEST_F(SamplerTest, AnEngineThatHasEndedIsNone) {
    for (const char state : {'Z', 'X', 'x'}) {
        runEngine(1, state);
        EXPECT_THAT(sampler_.take().engines, IsEmpty()) << state;
    }
    for (const char state : {'R', 'S', 'D', 'T'}) {
        runEngine(1, state);
        EXPECT_EQ(sampler_.take().engines.size(), 1u) << state;
    }
    kernel_.end(process_.pid());
    const Figures figures = sampler_.take();
    EXPECT_THAT(figures.engines, IsEmpty());
    EXPECT_THAT(figures.warnings, IsEmpty());
    EXPECT_EQ(sampleAfter(2).engines.at(0).cpuPercent, std::nullopt) << "it was not in the sample before";
}

// Between finding and reading, a process may end and another one get its id.
TEST_F(SamplerTest, AnotherProgramIsNoEngine) {
    runEngine(1, 'S', "sh");
    const Figures figures = sampler_.take();
    EXPECT_THAT(figures.engines, IsEmpty());
    EXPECT_THAT(figures.warnings, IsEmpty());
}

TEST_F(SamplerTest, AnEngineThatCannotBeReadHasAWarning) {
    kernel_.hide(engineFile("stat"));
    const Figures hidden = sampler_.take();
    EXPECT_THAT(hidden.engines, IsEmpty());
    EXPECT_THAT(hidden.warnings, ElementsAre("cannot read " + engineFile("stat") + ": Permission denied"));
    kernel_.show(engineFile("stat"));
    kernel_.write(engineFile("stat"), "odd\n");
    const Figures odd = sampler_.take();
    EXPECT_THAT(odd.engines, IsEmpty());
    EXPECT_THAT(odd.warnings, ElementsAre("cannot read " + engineFile("stat") + ": it is not as proc(5) describes it"));
}

TEST_F(SamplerTest, AFigureThatIsNoneHasAWarning) {
    sampler_.take();
    const Figures figures = sampleAfter(0.5);
    ASSERT_EQ(figures.engines.size(), 1u);
    EXPECT_EQ(figures.engines[0].cpuPercent, std::nullopt);
    EXPECT_EQ(figures.warnings.size(), 1u);
}

}  // namespace
