#include "Lifetime.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "CommandLineArguments.h"
#include "Immortal.h"

namespace nLifetime {

namespace {

struct Registry {
    std::recursive_mutex mutex;  // guards both; recursive, because a constructor may load a library that registers
    std::vector<Registration*> registrations;
    bool open = false;
};

Registry& registry() {
    static Immortal<Registry> registry;
    return *registry;
}

void forget(Registration* registration) {
    auto& all = registry().registrations;
    all.erase(std::remove(all.begin(), all.end(), registration), all.end());
}

// Both look for the next object afresh each time: constructors and destructors may load and unload libraries, whose
// registrations come and go.

void constructAll() {
    const auto& all = registry().registrations;
    const auto isMissing = [](const Registration* registration) { return !registration->isConstructed(); };
    for (;;) {
        const auto next = std::find_if(all.begin(), all.end(), isMissing);
        if (next == all.end()) return;
        (*next)->construct();
    }
}

void destroyAll() {
    const auto& all = registry().registrations;
    const auto isThere = [](const Registration* registration) { return registration->isConstructed(); };
    for (;;) {
        const auto last = std::find_if(all.rbegin(), all.rend(), isThere);
        if (last == all.rend()) return;
        (*last)->destroy();
    }
}

}  // namespace

Registration::Registration(Construct make, Destroy drop) : construct_(make), destroy_(drop) {
    const std::lock_guard<std::recursive_mutex> lock(registry().mutex);
    registry().registrations.push_back(this);
    if (!registry().open) return;
    try {
        construct();
    } catch (...) {
        forget(this);  // no destructor will run for it
        throw;
    }
}

// Runs when the registering library is unloaded or the process ends.
Registration::~Registration() {
    const std::lock_guard<std::recursive_mutex> lock(registry().mutex);
    destroy();
    forget(this);
}

void Registration::construct() { object_ = construct_(); }

void Registration::destroy() {
    if (void* const object = std::exchange(object_, nullptr)) destroy_(object);
}

MainScope::MainScope(int argc, const char* const* argv) : opened_(false) {
    const std::lock_guard<std::recursive_mutex> lock(registry().mutex);
    if (registry().open) return;

    nCommandLineArguments::gSet(argc, argv);
    registry().open = true;
    try {
        constructAll();
    } catch (...) {
        registry().open = false;
        destroyAll();
        throw;
    }
    opened_ = true;
}

MainScope::~MainScope() {
    if (!opened_) return;
    const std::lock_guard<std::recursive_mutex> lock(registry().mutex);
    registry().open = false;
    destroyAll();
}

}  // namespace nLifetime
