#include "generators.h"

#include <filesystem>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int freePort() {
    const int any = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(any, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(any, reinterpret_cast<sockaddr*>(&address), &size);
    close(any);
    return ntohs(address.sin_port);
}

}  // namespace

Server::Server(const Scratch& directory) {
    const std::string address = "127.0.0.1:" + std::to_string(freePort());
    url_ = "http://" + address;
    std::filesystem::create_directory(directory / "temp");
    std::filesystem::copy_file(GENERATORS "/nginx.conf", directory / "nginx.conf");
    writeText(directory / "listen.conf", "listen " + address + ";");
    const std::vector<std::string> command = {"nginx", "-p", directory / "", "-c", directory / "nginx.conf"};
    nginx_.emplace_back(command, Groups{}, Process::Output{"", directory / "nginx.errors"});
    waitUntil(nowNs() + kNsPerSecond / 2);
    if (nginx_.front().hasEnded()) throw NotHere("nginx: " + readText(directory / "nginx.errors"));
}

Generator::Generator(const Words& words, double seconds, const Groups& groups, const Scratch& directory)
    : server_(directory), result_(directory / "result") {
    const std::vector<std::string> command = {GENERATORS "/" + words.text("generator") + ".sh",
                                              std::to_string(static_cast<int>(seconds)),
                                              server_.url(),
                                              std::to_string(words.count("rate")),
                                              std::to_string(words.count("connections")),
                                              directory / "."};
    processes_.emplace_back(command, groups, Process::Output{result_, directory / "generator.errors"});
}

Truth Generator::worst(const Window&) {
    const int status = processes_.front().wait();
    const std::string text = readText(result_);
    if (status != 0 || text.empty()) throw NotHere("the generator ended with " + std::to_string(status));
    const Words result(text.substr(0, text.find('\n')));
    const auto sent = static_cast<std::uint64_t>(result.number("sent"));
    Truth truth;
    truth.due = std::max(sent, static_cast<std::uint64_t>(result.number("asked")));
    truth.late = truth.due - sent + static_cast<std::uint64_t>(result.number("late"));
    return truth;
}
