// A host program as small as one can be: its main scope initialises the library, then it shows what it reads.
#include <cstdio>

#include "Lifetime.h"
#include "krenv.h"

int main(int argc, char** argv) {
    const nLifetime::MainScope scope(argc, argv);
    KREnvContainerClass env;
    const char* const value = env.KREGetEnvValue("KEY");
    if (value != nullptr) {
        std::printf("KEY = %s\n", value);
    } else {
        std::puts("no KEY");
    }
    return 0;
}
