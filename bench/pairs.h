// pairs.h - two ways of doing the same, measured in one run and reported as one line.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

constexpr char kOurs[] = "/krenv";
constexpr char kTheirs[] = "/other";

/// The pairs in the order of the report; the runs themselves are interleaved at random.
inline std::vector<std::string>& pairNames() {
    static std::vector<std::string> names;
    return names;
}

/// Measures `ours` against `theirs`, each called once per iteration. `other` names the other way for the report.
inline void addPair(const std::string& what, const std::string& other, std::function<void()> ours,
                    std::function<void()> theirs) {
    const std::string name = what + "|" + other;
    pairNames().push_back(name);
    const auto add = [&name](const char* side, const std::function<void()>& body) {
        benchmark::RegisterBenchmark((name + side).c_str(), [body](benchmark::State& state) {
            for ([[maybe_unused]] auto _ : state) body();
        });
    };
    add(kOurs, ours);
    add(kTheirs, theirs);
}

/// Ends the program when the two sides would not do the same work.
inline void check(bool asExpected, const char* what) {
    if (asExpected) return;
    std::fprintf(stderr, "krenv_bench: failed: %s\n", what);
    std::exit(1);
}

/// Walks through texts in an order that no cache foresees.
class Shuffled {
public:
    explicit Shuffled(std::vector<std::string> texts) : texts_(std::move(texts)) {
        std::shuffle(texts_.begin(), texts_.end(), std::mt19937(1));
    }
    const char* next() {
        at_ = at_ + 1 < texts_.size() ? at_ + 1 : 0;
        return texts_[at_].c_str();
    }

private:
    std::vector<std::string> texts_;
    std::size_t at_ = 0;
};

// Each file registers its pairs.
void addSettingsPairs();
void addReadingPairs();
void addPathPairs();
