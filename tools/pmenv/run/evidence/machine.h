// machine.h - the machine's own figures, interval by interval.
#pragma once

#include <optional>

#include "evidence/evidence.h"
#include "kernel/files.h"
#include "kernel/machineFiles.h"
#include "kernel/networkFiles.h"

class Machine {
public:
    Machine();

    /// What happened since the last call. With `slow`, also what changes seldom; without, that is empty.
    MachineEvidence sample(bool slow);

    /// Whether the kernel measures how long threads wait for disks.
    bool delayAccounting() const { return delayAccounting_; }

private:
    void sampleProcessors(MachineEvidence& machine);
    void sampleMemory(MachineEvidence& machine) const;
    void sampleNetwork(MachineEvidence& machine);

    kernel::KeptFile stat_{"/proc/stat"};
    bool delayAccounting_;
    std::optional<kernel::MachineTicks> ticks_;
    std::optional<std::uint64_t> dropped_;
    std::optional<kernel::TcpSegments> segments_;
    std::optional<std::uint64_t> pressure_[3];
};
