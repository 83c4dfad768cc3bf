// Runs all pairs and prints one line for each: both medians over the repetitions, and their ratio. Times are those of
// the processor, which other programs on a busy machine disturb less than elapsed ones.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "pairs.h"

namespace {

// Nanoseconds as people read them.
std::string timeText(double nanoseconds) {
    const struct {
        double limit, unit;
        const char* name;
    } units[] = {{1e3, 1, "ns"}, {1e6, 1e3, "us"}, {1e9, 1e6, "ms"}, {1e300, 1e9, "s"}};
    const auto* unit = units;
    while (nanoseconds >= unit->limit) ++unit;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", nanoseconds / unit->unit, unit->name);
    return text;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

class PairReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred)
                std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
            if (run.aggregate_name == "median") keep(run.run_name.function_name, run.GetAdjustedCPUTime());
        }
    }

    void Finalize() override {
        std::printf("%-44s %-30s %10s %10s %8s\n", "operation", "compared with", "krenv", "other", "ratio");
        for (const std::string& name : pairNames()) {
            if (medians_.find(name) != medians_.end()) printPair(name);
        }
    }

private:
    void keep(const std::string& name, double nanoseconds) {
        const bool ours = endsWith(name, kOurs);
        const std::string pair = name.substr(0, name.rfind('/'));
        (ours ? medians_[pair].ours : medians_[pair].theirs) = nanoseconds;
    }

    void printPair(const std::string& name) const {
        const Medians& medians = medians_.at(name);
        const std::size_t bar = name.find('|');
        std::printf("%-44s %-30s %10s %10s %7.2fx\n", name.substr(0, bar).c_str(), name.substr(bar + 1).c_str(),
                    timeText(medians.ours).c_str(), timeText(medians.theirs).c_str(), medians.theirs / medians.ours);
    }

    struct Medians {
        double ours = 0;
        double theirs = 0;
    };
    std::map<std::string, Medians> medians_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    addSettingsPairs();
    addReadingPairs();
    addPathPairs();

    PairReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nMedians of processor time; a ratio above 1 means that krenv takes less time.\n");
    return 0;
}
