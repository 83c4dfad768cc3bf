#include "engines.h"

#include <algorithm>
#include <fstream>

#include <fcntl.h>
#include <sys/wait.h>

namespace {

constexpr double kMostSeconds = 240;  // of a trial; the engines are ended long before
constexpr std::size_t kFileMegabytes = 128;
constexpr std::int64_t kSetUpNs = 30 * kNsPerSecond;

// A file that is on the disk and not in memory.
void makeFile(const std::string& path) {
    const std::string megabyte(1 << 20, 'f');
    std::ofstream file(path, std::ios::binary);
    for (std::size_t i = 0; i < kFileMegabytes; ++i) file << megabyte;
    file.close();
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    fdatasync(descriptor);
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED);
    close(descriptor);
}

std::vector<std::string> commandLine(const Words& words) {
    std::vector<std::string> arguments = {ENGINE_BINARY};
    for (const auto& [name, value] : words.all()) arguments.push_back(name + "=" + value);
    return arguments;
}

double percentileMs(const SharedRecord& record, double percentile) {
    std::uint64_t all = 0;
    for (const auto& count : record->lateness) all += count;
    std::uint64_t below = 0;
    for (std::size_t step = 0; step < Record::kSteps; ++step) {
        below += record->lateness[step];
        if (static_cast<double>(below) >= percentile / 100 * static_cast<double>(all)) return Record::msOfStep(step);
    }
    return 0;
}

Truth truthOf(const SharedRecord& record, const Window& window) {
    Truth truth;
    for (std::size_t i = 0; i < Record::kSlices; ++i) {
        const std::int64_t begin = record->startNs + static_cast<std::int64_t>(i) * Record::kSliceNs;
        if (begin < window.fromNs || begin + Record::kSliceNs > window.toNs) continue;
        const Record::Slice& slice = record->slices[i];
        const auto second = static_cast<std::size_t>((begin - window.fromNs) / kNsPerSecond);
        truth.lateBySecond.resize(std::max(truth.lateBySecond.size(), second + 1));
        const std::uint32_t late = slice.due - slice.sent + slice.late;
        truth.due += slice.due;
        truth.late += late;
        truth.lateBySecond[second] += late;
    }
    truth.p50Ms = percentileMs(record, 50);
    truth.p99Ms = percentileMs(record, 99);
    return truth;
}

}  // namespace

Engines::Engines(int count, Words words, const Groups& groups, const Scratch& memory, const Scratch& disk) {
    words.set("seconds", std::to_string(kMostSeconds));
    if (words.has("log")) words.set("log", disk / "log");
    if (words.has("file")) words.set("file", disk / "file"), makeFile(disk / "file");
    const std::string errors = memory / "engine.errors";
    for (int i = 0; i < count; ++i) {
        const std::string record = memory / ("record" + std::to_string(i));
        records_.emplace_back(record);
        words.set("record", record);
        processes_.emplace_back(commandLine(words), groups, Process::Output{"", errors});
    }
    awaitReady(errors);
}

void Engines::awaitReady(const std::string& errors) {
    const std::int64_t deadline = nowNs() + kSetUpNs;
    for (std::size_t i = 0; i < records_.size(); ++i) {
        while (records_[i]->ready == 0) {
            if (processes_[i].hasEnded()) throw NotHere(readText(errors));
            if (nowNs() > deadline) throw std::runtime_error("the engines are not set up in time");
            waitUntil(nowNs() + kNsPerSecond / 100);
        }
    }
}

Truth Engines::worst(const Window& window) {
    Truth worst;
    for (const SharedRecord& record : records_) {
        const Truth truth = truthOf(record, window);
        if (worst.due == 0 || truth.share() > worst.share()) worst = truth;
    }
    return worst;
}
