// measure.h - several ways of doing the same, measured in one run.
//
// The ways of a row take turns, each round in another order, so that what else the machine does disturbs all of them
// alike; the medians over the rounds are kept. Times are those of the processor, in the benchmark and in the children
// that it waits for: other programs on a busy machine disturb them less than elapsed ones.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

enum class Kind { Ours, Alternative, Floor };

struct Way {
    Kind kind;
    std::string name;
    std::function<void()> run;
};

/// What a row is to reach; 0 where nothing is asked.
struct Goal {
    double timesAsFast = 0;   ///< as the fastest alternative, at least
    double timesFloor = 0;    ///< at most
    double aboveFloorNs = 0;  ///< nanoseconds over the floor, at most
};

struct Row {
    std::string operation;
    std::string size;
    Goal goal;
    std::vector<Way> ways;
    double operations = 1;  ///< in one call of a way
    bool inChild = false;   ///< each call in a process of its own: it changes the process that it runs in
};

/// The rows measured so far.
class Report {
public:
    void measure(const Row& row);
    const nlohmann::json& rows() const { return rows_; }

private:
    nlohmann::json rows_ = nlohmann::json::array();
};

/// Keeps the compiler from leaving out what nobody looks at.
template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// Ends the program when the ways of a row would not do the same work.
void check(bool asExpected, const std::string& what);

/// The rows as a Markdown table.
std::string tableOf(const nlohmann::json& rows);
