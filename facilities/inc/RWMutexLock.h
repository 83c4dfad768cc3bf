// RWMutexLock.h - a mutex, and the guard that holds it for a scope.
#pragma once

#include <mutex>

/// A mutex that is ready before any constructor runs, so that static initialisation may already use it.
/// It is recursive, so that code that runs under it and acquires it again (a log sink that searches a file) does not
/// wait for itself.
class RWMutexLock {
public:
    constexpr RWMutexLock() = default;

    /// Waits until no other thread holds the mutex, and holds it.
    void acquire() { mutex_.lock(); }
    /// Releases the mutex; call it once for each time that this thread acquired it.
    void release() { mutex_.unlock(); }
    /// Acquires the mutex unless another thread holds it. True when it was acquired.
    bool tryAcquire() { return mutex_.try_lock(); }

    /// Holds the mutex from construction to the end of the scope, also when an exception leaves the scope.
    class LockGuard {
    public:
        /// Waits for `lock` and holds it.
        explicit LockGuard(RWMutexLock& lock) : guard_(lock.mutex_) {}

    private:
        std::lock_guard<std::recursive_mutex> guard_;
    };

private:
    std::recursive_mutex mutex_;
};
