// RWMutexLock.h - a mutex, and the guard that holds it for a scope.
#pragma once

#include <mutex>

/// A mutex that is ready before any constructor runs, so that static initialisation may already use it.
/// It is not recursive: the thread that holds it must not acquire it again.
class RWMutexLock {
public:
    constexpr RWMutexLock() = default;

    void acquire() { mutex_.lock(); }
    void release() { mutex_.unlock(); }

    /// Holds the mutex from its construction to the end of its scope, also when an exception leaves the scope.
    class LockGuard {
    public:
        explicit LockGuard(RWMutexLock& lock) : guard_(lock.mutex_) {}

    private:
        std::lock_guard<std::mutex> guard_;
    };

private:
    std::mutex mutex_;
};
