// population.h - sleeping processes for the statistics to look at.
#pragma once

#include <string>

#include <sys/types.h>

/// `processes` sleeping processes, the first `engines` of them named like load engines, for the length of a scope. They
/// are children of one keeper that ends them when this object, or the whole benchmark, goes away.
class Population {
public:
    Population(int processes, int engines);
    ~Population();
    Population(const Population&) = delete;
    Population& operator=(const Population&) = delete;

private:
    pid_t keeper_ = 0;
    int end_ = -1;  // of the pipe that the keeper waits on
};

/// The keeper, a process of its own: `krenv_bench population PROCESSES ENGINES`. Its exit code.
int runPopulation(const std::string& processes, const std::string& engines);
