#include "krenv.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "RWCString.h"

namespace {

// Appends "IP4: 10.1.2.3 " or "IP6: fe80::1 "; nothing for other families.
void appendAddress(RWCString& addresses, const sockaddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, text, INET_ADDRSTRLEN);
        addresses += "IP4: ";
    } else if (address.sa_family == AF_INET6) {
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr, text, INET6_ADDRSTRLEN);
        addresses += "IP6: ";
    } else {
        return;
    }
    addresses += text;
    addresses += " ";
}

}  // namespace

std::string exec(const char* command) {
    using Pipe = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    const Pipe pipe(command != nullptr ? popen(command, "r") : nullptr, &pclose);
    if (pipe == nullptr) throw std::runtime_error("popen() failed!");

    std::string output;
    while (std::feof(pipe.get()) == 0) {
        char piece[128] = "";
        const bool complete = std::fgets(piece, sizeof piece, pipe.get()) != nullptr;
        output += piece;  // of an incomplete one, what was read before the host's signal handler ran
        if (complete || std::ferror(pipe.get()) == 0) continue;
        if (errno != EINTR) break;  // a pipe that cannot be read would never come to its end
        std::clearerr(pipe.get());
    }
    return output;
}

char* KRPGetMachineName() {
    static char name[150];
    std::memset(name, 0, sizeof name);
    gethostname(name, sizeof name);
    name[sizeof name - 1] = '\0';  // neither call ends a name that fills the buffer
    if (const hostent* const host = gethostbyname(name)) {
        std::strncpy(name, host->h_name, sizeof name);
        name[sizeof name - 1] = '\0';
    }
    return name;
}

const char* KRPGetCPUInfo() {
    static std::string model = exec("cat /proc/cpuinfo | grep \"model name\"");
    // Trimmed at every call, the arithmetic wrapping round: a second call takes the name's first character off.
    // Programs that call it once see the name; the others have got used to what they see.
    const std::size_t newline = model.find('\n');
    const std::size_t colon = model.find(':');
    model = model.substr(colon + 2, newline - colon - 2);
    return model.c_str();
}

bool KRPIs64BitEnv() { return exec("getconf LONG_BIT").compare(0, 2, "64") == 0; }

const char* KRPGetIPAddress() {
    static RWCString addresses;  // never cleared: each call appends to what the calls before it have found
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return addresses.data();
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* interface = list; interface != nullptr; interface = interface->ifa_next) {
        if (interface->ifa_addr == nullptr || std::strcmp(interface->ifa_name, "lo") == 0) continue;
        appendAddress(addresses, *interface->ifa_addr);
    }
    return addresses.data();
}

char* KRPGetOSInfo() {
    static char text[256];
    utsname names{};
    uname(&names);
    std::snprintf(text, sizeof text, "Linux (%s %s)", names.sysname, names.release);
    return text;
}

bool IsNT() { return false; }

int GetProcessHandle() { return 0; }

int KRPGetWorkingSetSize() { return 0; }
