// A library that registers two objects, for tests that load and unload it.
#include "Lifetime.h"

// The test program's: notes what happened.
extern "C" void lifetimeEvent(const char* what);

namespace {

struct First {
    First() { lifetimeEvent("+plugin1"); }
    ~First() { lifetimeEvent("-plugin1"); }
};
struct Second {
    Second() { lifetimeEvent("+plugin2"); }
    ~Second() { lifetimeEvent("-plugin2"); }
};

const nLifetime::StaticObject<First> first;
const nLifetime::StaticObject<Second> second;

}  // namespace
