// The smallest host program: opens its main scope, which loads pressmark.ini, and reads a setting.
#include <cstdio>

#include "Lifetime.h"
#include "krenv.h"

int main(int argc, char** argv) {
    const nLifetime::MainScope scope(argc, argv);

    KREnvContainerClass env;
    const char* const name = argc > 1 ? argv[1] : "RESULTS_DIR";
    const char* const value = env.KREGetEnvValue(name);
    if (value == nullptr) {
        std::fprintf(stderr, "host: no setting %s\n", name);
        return 1;
    }
    std::printf("%s = %s\n", name, value);
    return 0;
}
