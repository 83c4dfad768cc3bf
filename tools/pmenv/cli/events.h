// events.h - waiting for the next sample, a key or a signal, whichever comes first.
#pragma once

#include <csignal>
#include <vector>

/// While it lives, the given signals are not delivered but reported by wait; afterwards all is as before.
class Events {
public:
    enum class Kind { Timeout, Key, Signal };
    struct Event {
        Kind kind;
        int value;  ///< the key or the signal
    };

    /// With `keys`, characters typed on standard input are reported too.
    Events(const std::vector<int>& signals, bool keys);
    ~Events();
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    Event wait(double seconds);

private:
    bool readKey(int* key);

    sigset_t before_;
    int signals_;  // descriptor that the signals are read from
    bool keys_;
};
