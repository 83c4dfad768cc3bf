#include "measure.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr double kSampleNs = 3e6;   // long enough that the clock's resolution does not matter
constexpr double kRowNs = 3e9;      // the time that a row may take
constexpr std::size_t kFewest = 5;  // rounds
constexpr std::size_t kMost = 41;

double nanoseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
}

// The processor time of this process and of the children that it has waited for.
double processorNs() {
    timespec own{};
    rusage children{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &own);
    getrusage(RUSAGE_CHILDREN, &children);
    return static_cast<double>(own.tv_sec) * 1e9 + static_cast<double>(own.tv_nsec) + nanoseconds(children.ru_utime) +
           nanoseconds(children.ru_stime);
}

double sample(const Way& way, std::size_t calls) {
    const double begin = processorNs();
    for (std::size_t i = 0; i < calls; ++i) way.run();
    return (processorNs() - begin) / static_cast<double>(calls);
}

double sampleInChild(const Way& way) {
    int ends[2];
    check(pipe(ends) == 0, "a pipe");
    const pid_t child = fork();
    if (child == 0) {
        const double taken = sample(way, 1);
        _exit(write(ends[1], &taken, sizeof taken) == sizeof taken ? 0 : 1);
    }
    close(ends[1]);
    double taken = 0;
    const bool told = read(ends[0], &taken, sizeof taken) == sizeof taken;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    check(told, way.name);
    return taken;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// One way's samples.
struct Samples {
    const Way* way;
    std::size_t calls = 1;  // per sample
    std::vector<double> taken;

    void take(bool inChild) { taken.push_back(inChild ? sampleInChild(*way) : sample(*way, calls)); }
};

// Makes the first calls, which fill caches; they only show how long a call takes. Returns the time that a sample takes.
double warmUp(Samples* samples, bool inChild) {
    const double once = inChild ? sampleInChild(*samples->way) : sample(*samples->way, 1);
    if (inChild || once > kSampleNs) return once;
    const double call = std::max(sample(*samples->way, 1 + static_cast<std::size_t>(kSampleNs / 10 / once)), 0.1);
    samples->calls = 1 + static_cast<std::size_t>(kSampleNs / call);
    return kSampleNs;
}

const char* kindName(Kind kind) { return kind == Kind::Ours ? "krenv" : kind == Kind::Floor ? "floor" : "alternative"; }

}  // namespace

void Report::measure(const Row& row) {
    std::fprintf(stderr, "  %s, %s\n", row.operation.c_str(), row.size.c_str());
    std::vector<Samples> all;
    double roundNs = 0;
    for (const Way& way : row.ways) {
        all.push_back({&way, 1, {}});
        roundNs += warmUp(&all.back(), row.inChild);
    }
    const std::size_t asManyAsFit = std::clamp(static_cast<std::size_t>(kRowNs / roundNs), kFewest, kMost);
    const std::size_t rounds = row.rounds != 0 ? row.rounds : asManyAsFit;
    std::vector<Samples*> order;
    for (Samples& samples : all) order.push_back(&samples);
    std::mt19937 random(1);
    for (std::size_t round = 0; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (Samples* const samples : order) samples->take(row.inChild);
    }

    nlohmann::json ways = nlohmann::json::array();
    for (const Samples& samples : all) {
        ways.push_back({{"kind", kindName(samples.way->kind)},
                        {"name", samples.way->name},
                        {"ns", median(samples.taken) / row.operations},
                        {"fastestNs", *std::min_element(samples.taken.begin(), samples.taken.end()) / row.operations}});
    }
    rows_.push_back({{"operation", row.operation},
                     {"size", row.size},
                     {"bits", sizeof(void*) * 8},
                     {"rounds", rounds},
                     {"ways", ways},
                     {"goal",
                      {{"timesAsFast", row.goal.timesAsFast},
                       {"timesFloor", row.goal.timesFloor},
                       {"aboveFloorNs", row.goal.aboveFloorNs}}}});
}

void check(bool asExpected, const std::string& what) {
    if (asExpected) return;
    std::fprintf(stderr, "krenv_bench: failed: %s\n", what.c_str());
    std::exit(1);
}
