// Immortal.h - a process-wide object that is never destroyed, so that calls from destructors at exit still find it.
#pragma once

#include <new>
#include <utility>

/// Use it as a function-local static: `static Immortal<State> state; return *state;`
template <class T>
class Immortal {
public:
    template <class... Args>
    explicit Immortal(Args&&... args) {
        new (storage_) T(std::forward<Args>(args)...);
    }

    T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_)); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};
