#pragma once

#include <mutex>

class RWMutexLock : private std::mutex {
public:
    void acquire() { lock(); }
    void release() { unlock(); }

    class LockGuard {
    public:
        explicit LockGuard(RWMutexLock& lock) : guard_(lock) {}

    private:
        std::lock_guard<std::mutex> guard_;
    };
};
