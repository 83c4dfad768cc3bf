#include "ExecutableDirectory.h"

#include <mutex>
#include <utility>

#include "Immortal.h"

namespace n_debug::nExecutableDirectory {

namespace {

struct State {
    std::mutex mutex;  // guards directory
    std::string directory;
};

State& state() {
    static Immortal<State> state;
    return *state;
}

}  // namespace

void gInitialize(std::string directory) {
    const std::lock_guard<std::mutex> lock(state().mutex);
    state().directory = std::move(directory);
}

std::string gGet() {
    const std::lock_guard<std::mutex> lock(state().mutex);
    return state().directory;
}

}  // namespace n_debug::nExecutableDirectory
