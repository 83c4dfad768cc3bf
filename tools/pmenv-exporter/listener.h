// listener.h - the socket at which requests arrive.
#pragma once

#include <string>

/// A listening socket.
class Listener {
public:
    /// Listens at "ADDRESS:PORT", "[ADDRESS]:PORT" for IPv6; port 0 for any that is free. Throws Failure.
    explicit Listener(const std::string& address);

    /// The socket that systemd has handed over, if it has: `isHandedOver` tells. Throws Failure when it is not just one, and
    /// a listening one. The environment's variables about it are removed, so that no program that is started takes it.
    static bool isHandedOver();
    static Listener handedOver();

    ~Listener();
    Listener(Listener&& other) noexcept;
    Listener& operator=(Listener&&) = delete;

    int descriptor() const { return descriptor_; }

    /// "127.0.0.1:19815", with the port that was chosen; the path of a local socket.
    std::string address() const;

private:
    explicit Listener(int descriptor) : descriptor_(descriptor) {}

    int descriptor_;
};
