#include "CommandLineArguments.h"

#include <climits>
#include <mutex>
#include <vector>

#include <unistd.h>

#include "Immortal.h"

namespace nCommandLineArguments {

namespace {

struct State {
    std::mutex mutex;  // guards arguments
    std::vector<std::string> arguments;
};

State& state() {
    static Immortal<State> state;
    return *state;
}

// The kernel's name of the running program, or "" where /proc is not mounted.
std::string readOwnPath() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

void gSet(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = 0; argv != nullptr && i < argc && argv[i] != nullptr; ++i) arguments.emplace_back(argv[i]);

    const std::lock_guard<std::mutex> lock(state().mutex);
    state().arguments = std::move(arguments);
}

int gCount() {
    const std::lock_guard<std::mutex> lock(state().mutex);
    return static_cast<int>(state().arguments.size());
}

std::string gGet(int index) {
    std::string argument;
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        const auto& arguments = state().arguments;
        if (index >= 0 && static_cast<std::size_t>(index) < arguments.size()) {
            argument = arguments[static_cast<std::size_t>(index)];
        }
    }
    const bool foundThroughPath = index == 0 && argument.find('/') == std::string::npos;
    return foundThroughPath ? readOwnPath() : argument;
}

}  // namespace nCommandLineArguments
