#include "listener.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "failure.h"

namespace {

constexpr int kFirstHandedOver = 3;  // descriptor, by convention

[[noreturn]] void failToListen(const std::string& address, const std::string& why) {
    throw Failure("cannot listen at " + address + ": " + why + "; --listen ADDRESS:PORT chooses another address");
}

// --- an address of its own ------------------------------------------------------------------------------------------

struct HostAndPort {
    std::string host;
    std::string port;
};

HostAndPort split(const std::string& address) {
    const std::size_t colon = address.rfind(':');
    std::string host = address.substr(0, std::min(colon, address.size()));
    const bool isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (isBracketed) host = host.substr(1, host.size() - 2);
    const std::string port = colon == std::string::npos ? "" : address.substr(colon + 1);
    const bool isNumber =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (host.empty() || !isNumber || std::stoi(port) > 65535 || (!isBracketed && host.find(':') != std::string::npos)) {
        throw Failure("--listen needs ADDRESS:PORT, such as 127.0.0.1:19815 or [::1]:19815, not '" + address + "'",
                      kExitUsage);
    }
    return {host, port};
}

struct AddressesCloser {
    void operator()(addrinfo* addresses) const { freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, AddressesCloser>;

// No names are looked up: whose address a name has is not said here.
Addresses parse(const std::string& address) {
    const HostAndPort parts = split(address);
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(parts.host.c_str(), parts.port.c_str(), &hints, &found) != 0) {
        throw Failure("--listen needs an address in numbers, not '" + parts.host + "'", kExitUsage);
    }
    return Addresses(found);
}

int listenAt(const addrinfo& address, const std::string& text) {
    const int descriptor = socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) failToListen(text, std::strerror(errno));
    const int yes = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);  // at once after a restart
    if (bind(descriptor, address.ai_addr, address.ai_addrlen) == 0 && listen(descriptor, SOMAXCONN) == 0) {
        return descriptor;
    }
    const int error = errno;
    close(descriptor);
    failToListen(text, std::strerror(error));
}

// --- one that is handed over ----------------------------------------------------------------------------------------

bool isListening(int descriptor) {
    int listens = 0, type = 0;
    socklen_t length = sizeof listens;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &length) != 0 || listens == 0) return false;
    length = sizeof type;
    return getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_STREAM;
}

std::string numericAddress(const sockaddr_storage& storage, socklen_t length) {
    char host[NI_MAXHOST], port[NI_MAXSERV];
    const auto* const address = reinterpret_cast<const sockaddr*>(&storage);
    if (getnameinfo(address, length, host, sizeof host, port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "an unknown address";
    }
    return storage.ss_family == AF_INET6 ? "[" + std::string(host) + "]:" + port : std::string(host) + ":" + port;
}

}  // namespace

Listener::Listener(const std::string& address) : descriptor_(listenAt(*parse(address), address)) {}

bool Listener::isHandedOver() {
    const char* const pid = std::getenv("LISTEN_PID");
    return pid != nullptr && pid == std::to_string(getpid());
}

Listener Listener::handedOver() {
    const char* const variable = std::getenv("LISTEN_FDS");
    const std::string count = variable != nullptr ? variable : "";
    for (const char* const name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(name);
    if (count != "1") throw Failure("systemd has handed over " + count + " sockets; one is needed");
    if (!isListening(kFirstHandedOver)) throw Failure("what systemd has handed over does not listen for connections");
    fcntl(kFirstHandedOver, F_SETFD, FD_CLOEXEC);
    fcntl(kFirstHandedOver, F_SETFL, fcntl(kFirstHandedOver, F_GETFL) | O_NONBLOCK);
    return Listener(kFirstHandedOver);
}

Listener::Listener(Listener&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Listener::~Listener() {
    if (descriptor_ >= 0) close(descriptor_);
}

std::string Listener::address() const {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (getsockname(descriptor_, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return "an unknown address";
    if (storage.ss_family != AF_UNIX) return numericAddress(storage, length);
    return reinterpret_cast<const sockaddr_un*>(&storage)->sun_path;
}
