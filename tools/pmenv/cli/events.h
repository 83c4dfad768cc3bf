// events.h - waits for the next sample, a key or a signal, whichever comes first.
#pragma once

#include <csignal>
#include <vector>

/// While it exists, the given signals are not delivered but reported by wait. Its destructor
/// drops those that have not been waited for, and restores the signal mask.
class Events {
public:
    enum class Kind { Timeout, Key, Signal };
    struct Event {
        Kind kind;
        int value;  ///< the key or the signal
    };

    /// With `keys`, wait also reports characters typed on standard input.
    Events(const std::vector<int>& signals, bool keys);
    ~Events();
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    Event wait(double seconds);

private:
    bool readKey(int* key);

    sigset_t before_;
    int signals_;  // the descriptor from which the signals are read
    bool keys_;
};
