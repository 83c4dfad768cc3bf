// The entry points of a copy of the library that is measured beside another copy.
#include "krenv.h"

extern "C" __attribute__((visibility("default"))) int loadVariant(const char* path) { return KRELoadIniFile(path); }

extern "C" __attribute__((visibility("default"))) const char* readVariant(const char* name) {
    static KREnvContainerClass container;
    return container.KREGetEnv(name);
}
