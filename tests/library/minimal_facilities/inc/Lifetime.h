#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace nLifetime {

/// What the opening scope calls, each keeping the object that it returns.
std::vector<std::function<std::shared_ptr<void>()>>& gRegistered();

class MainScope {
public:
    MainScope(int argc, const char* const* argv);
    ~MainScope() {
        while (!objects_.empty()) objects_.pop_back();
    }

private:
    std::vector<std::shared_ptr<void>> objects_;
};

template <class T>
struct StaticObject {
    StaticObject() {
        gRegistered().push_back([] { return std::make_shared<T>(); });
    }
};

}  // namespace nLifetime
