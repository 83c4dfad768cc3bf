#include "Lifetime.h"

#include <algorithm>
#include <mutex>
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

void destroyAll() {
    auto& registrations = registry().registrations;
    for (std::size_t i = registrations.size(); i-- > 0;) registrations[i]->destroy();
}

// By index: an object's constructor may load a library, whose registrations then stand behind it.
void constructAll() {
    for (std::size_t i = 0; i < registry().registrations.size(); ++i) registry().registrations[i]->construct();
}

}  // namespace

Registration::Registration(Construct make, Destroy drop) : construct_(make), destroy_(drop) {
    const std::lock_guard<std::recursive_mutex> lock(registry().mutex);
    registry().registrations.push_back(this);
    if (registry().open) construct();
}

// Runs when the registering library is unloaded or the process ends.
Registration::~Registration() {
    const std::lock_guard<std::recursive_mutex> lock(registry().mutex);
    destroy();
    auto& registrations = registry().registrations;
    registrations.erase(std::remove(registrations.begin(), registrations.end(), this), registrations.end());
}

void Registration::construct() {
    if (object_ == nullptr) object_ = construct_();
}

void Registration::destroy() {
    void* const object = object_;
    object_ = nullptr;
    if (object != nullptr) destroy_(object);
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
