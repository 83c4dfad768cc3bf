// The collector's second line of defence: a program that puts its own CollectSlavesInfo in front of the library's may
// let exceptions out of it, which the library's own does not.
#include "MachineStats.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "support/LogCapture.h"

using testing::ElementsAre;

namespace {

enum class Thrown { Exception, Other } g_thrown;

std::vector<std::string> recordsOfCollection(Thrown thrown) {
    g_thrown = thrown;
    MachineStats collector;
    KREnvMachineStats stats{};
    LogCapture log;
    EXPECT_TRUE(collector.CollectMachineStats(stats, false));
    EXPECT_GT(stats.physicalMemoryBytes, 0U) << "the machine is collected all the same";
    return log.records();
}

}  // namespace

bool MachineStats::CollectSlavesInfo(std::vector<KREnvSlaveStats>&, bool) {
    if (g_thrown == Thrown::Exception) throw std::runtime_error("bad engines");
    throw 42;
}

TEST(CollectMachineStats, LogsAnExceptionOfTheEnginesStepAndGoesOn) {
    EXPECT_THAT(recordsOfCollection(Thrown::Exception),
                ElementsAre("Trace: CollectMachineStats() - collecting slaves data",
                            "Error: CollectMachineStats() - failed to collect slaves data. error: bad engines",
                            "Trace: CollectMachineStats() - collecting general data"));
}

TEST(CollectMachineStats, LogsAnythingElseThatTheEnginesStepThrowsAndGoesOn) {
    EXPECT_THAT(recordsOfCollection(Thrown::Other),
                ElementsAre("Trace: CollectMachineStats() - collecting slaves data",
                            "Error: CollectMachineStats() - crashed while collecting slaves data",
                            "Trace: CollectMachineStats() - collecting general data"));
}
