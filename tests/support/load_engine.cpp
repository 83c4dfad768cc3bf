// Plays a load engine in tests: `load_engine idle`, `load_engine burn`, `load_engine memory MEGABYTES`.
//
// It takes the name that load engines have, prints a line when it is ready, and runs until it is killed or the program
// that started it ends.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

[[noreturn]] void idle() {
    for (;;) pause();
}

[[noreturn]] void burn() {
    setpriority(PRIO_PROCESS, 0, -20);  // so that it gets the processor before everything else, where that is permitted
    for (volatile unsigned turns = 0;;) turns = turns + 1;
}

}  // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, "PMLoadEngineMain");  // the kernel keeps 15 characters
    const std::string mode = argc > 1 ? argv[1] : "";
    const std::size_t megabytes = mode == "memory" && argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 0;
    const std::vector<char> memory(megabytes << 20, 'm');
    if (mode != "idle" && mode != "burn" && mode != "memory") {
        std::fputs("usage: load_engine idle | burn | memory MEGABYTES\n", stderr);
        return 2;
    }
    std::puts("ready");
    std::fflush(stdout);
    if (mode == "burn") burn();
    idle();
}
