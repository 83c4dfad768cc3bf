// record.h - what an engine notes about itself, in a file that it shares with the driver: nothing of it is lost when the
// engine is killed.
#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <new>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

/// Nanoseconds of the clock that all processes of this machine share.
inline std::int64_t nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

/// A request counts where it was due, whenever it was sent.
struct Record {
    static constexpr std::int64_t kToleranceNs = 10'000'000;  ///< what is sent later than this is late
    static constexpr std::int64_t kSliceNs = kNsPerSecond / 20;
    static constexpr std::size_t kSlices = 20 * 300;
    static constexpr std::size_t kSteps = 80;  ///< of lateness, four to each doubling, from 50 microseconds

    struct Slice {
        std::atomic<std::uint32_t> due, sent, late;
    };

    std::int64_t startNs;              ///< when the first slice begins
    std::atomic<std::uint32_t> ready;  ///< everything that is due has been noted
    Slice slices[kSlices];
    std::atomic<std::uint32_t> lateness[kSteps];

    void noteDue(std::int64_t dueNs) { count(sliceOf(dueNs).due); }
    void noteSent(std::int64_t dueNs, std::int64_t sentNs) {
        Slice& slice = sliceOf(dueNs);
        count(slice.sent);
        if (sentNs - dueNs > kToleranceNs) count(slice.late);
        count(lateness[stepOf(sentNs - dueNs)]);
    }

    static std::size_t stepOf(std::int64_t latenessNs) {
        const double step = latenessNs <= 50'000 ? 0 : std::ceil(4 * std::log2(static_cast<double>(latenessNs) / 50e3));
        return std::min(static_cast<std::size_t>(step), kSteps - 1);
    }
    /// The longest lateness that counts in this step.
    static double msOfStep(std::size_t step) { return 0.05 * std::exp2(static_cast<double>(step) / 4); }

private:
    static void count(std::atomic<std::uint32_t>& counter) { counter.fetch_add(1, std::memory_order_relaxed); }
    Slice& sliceOf(std::int64_t dueNs) {
        const auto slice = static_cast<std::size_t>((dueNs - startNs) / kSliceNs);
        return slices[std::min(slice, kSlices - 1)];
    }
};

/// The record in this file, which is made and filled with zeros where it is not there. It stays mapped for the length of
/// a scope.
class SharedRecord {
public:
    explicit SharedRecord(const std::string& path) {
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (file < 0 || ftruncate(file, sizeof(Record)) != 0) throw std::runtime_error("cannot make " + path);
        memory_ = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file, 0);
        close(file);
        if (memory_ == MAP_FAILED) throw std::runtime_error("cannot map " + path);
    }
    ~SharedRecord() { munmap(memory_, sizeof(Record)); }
    SharedRecord(const SharedRecord&) = delete;
    SharedRecord& operator=(const SharedRecord&) = delete;

    Record* operator->() const { return static_cast<Record*>(memory_); }

private:
    void* memory_ = nullptr;
};
