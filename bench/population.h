// population.h - sleeping processes for the statistics to look at.
#pragma once

#include <string>

#include <sys/types.h>

/// Keeps `processes` sleeping processes for the length of a scope; the first `engines` of them are named like load
/// engines and have `threads` threads, which wake ten times a second when there is more than one. They are children of one keeper, which ends them when this object is destroyed or the benchmark ends.
class Population {
public:
    Population(int processes, int engines, int threads = 1);
    ~Population();
    Population(const Population&) = delete;
    Population& operator=(const Population&) = delete;

private:
    pid_t keeper_ = 0;
    int end_ = -1;  // our end of the pipe that the keeper waits on
};

/// Runs the keeper, a process of its own: `krenv_bench population PROCESSES ENGINES THREADS`. Returns its exit code.
int runPopulation(const std::string& processes, const std::string& engines, const std::string& threads);
