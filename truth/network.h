// network.h - a network of one's own, so that its local ports can be used up without harm to the machine.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

/// Takes the calling thread, and what it starts, into a network in which nothing but the loopback interface is up and that
/// many local ports are to be had. Throws std::runtime_error when that is not permitted.
inline void enterNetworkOf(int ports) {
    const auto require = [](bool done) {
        if (!done) throw std::runtime_error(std::string("no network of one's own: ") + std::strerror(errno));
    };
    require(unshare(CLONE_NEWNET) == 0);
    ifreq interface {};
    std::strcpy(interface.ifr_name, "lo");
    interface.ifr_flags = IFF_UP;
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    require(any >= 0 && ioctl(any, SIOCSIFFLAGS, &interface) == 0);
    close(any);
    std::FILE* const range = std::fopen("/proc/sys/net/ipv4/ip_local_port_range", "we");
    require(range != nullptr);
    const bool written = std::fprintf(range, "33000 %d", 33000 + ports - 1) > 0;
    require((std::fclose(range) == 0) && written);
}
