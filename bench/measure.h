// measure.h - measures several ways of doing the same in one run.
//
// The ways of a row take turns, each round in another order, so that other work on the machine disturbs all of them
// alike; the report keeps the medians over the rounds. Times are processor times of the benchmark and of the children
// that it waits for, because other programs on a busy machine disturb them less than elapsed times.
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

/// The goal of a row; 0 where there is none.
struct Goal {
    double timesAsFast = 0;   ///< at least so many times as fast as the fastest alternative
    double timesFloor = 0;    ///< at most so many times the floor
    double aboveFloorNs = 0;  ///< at most so many nanoseconds over the floor
};

struct Row {
    std::string operation;
    std::string size;
    Goal goal;
    std::vector<Way> ways;
    double operations = 1;   ///< how many operations one call of a way makes
    bool inChild = false;    ///< run each call in a process of its own, because it changes the process that it runs in
    std::size_t rounds = 0;  ///< so many, for ways that take seconds; 0 for as many as there is time for
};

/// The rows measured so far.
class Report {
public:
    void measure(const Row& row);
    const nlohmann::json& rows() const { return rows_; }

private:
    nlohmann::json rows_ = nlohmann::json::array();
};

/// Keeps the compiler from removing a computation whose result is not used.
template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// Ends the program unless `asExpected`, so that all ways of a row are known to do the same work.
void check(bool asExpected, const std::string& what);

/// Formats the rows as a Markdown table.
std::string tableOf(const nlohmann::json& rows);
