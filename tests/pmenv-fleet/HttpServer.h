// HttpServer.h - a server on the loopback that answers as a test likes, also in ways in which no server should.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

/// A connection from which a request has been read.
class Connection {
public:
    Connection(int socket, int stop, std::string request)
        : request_(std::move(request)), socket_(socket), stop_(stop) {}

    const std::string& request() const { return request_; }

    /// False when the other side, or the test, has ended it.
    bool send(const std::string& bytes) const {
        for (std::size_t done = 0; done < bytes.size();) {
            pollfd ready[] = {{socket_, POLLOUT, 0}, {stop_, POLLIN, 0}};
            if (poll(ready, 2, kPatience) <= 0 || ready[1].revents != 0) return false;
            const ssize_t count =
                ::send(socket_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count <= 0) return false;
            done += static_cast<std::size_t>(count);
        }
        return true;
    }

    /// A whole answer, after which the connection stays open.
    bool answer(const std::string& body, const std::string& status = "200 OK", const std::string& headers = "") const {
        return send("HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers +
                    "\r\n" + body);
    }

    /// Does nothing for as long as the other side waits, or for some milliseconds. True where it still waits.
    bool keepSilent(int milliseconds = kPatience) const {
        pollfd ready[] = {{socket_, POLLRDHUP, 0}, {stop_, POLLIN, 0}};
        return poll(ready, 2, milliseconds) == 0;
    }

private:
    static constexpr int kPatience = 20000;  // milliseconds

    std::string request_;
    int socket_;
    int stop_;
};

/// Calls `reply` for each request, in a thread of its own, until it returns false. One connection at a time.
class HttpServer {
public:
    using Reply = std::function<bool(const Connection&)>;

    explicit HttpServer(Reply reply) : reply_(std::move(reply)) {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const general = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener_, general, length) != 0 || listen(listener_, 8) != 0) throw std::runtime_error("no port");
        getsockname(listener_, general, &length);
        host_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        thread_ = std::thread([this] { serve(); });
    }
    ~HttpServer() {
        eventfd_write(stop_, 1);
        thread_.join();
        close(listener_);
        close(stop_);
    }
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    const std::string& host() const { return host_; }
    std::string url() const { return "http://" + host_; }

private:
    bool waitFor(int socket) const {
        pollfd ready[] = {{socket, POLLIN, 0}, {stop_, POLLIN, 0}};
        return poll(ready, 2, -1) > 0 && ready[1].revents == 0;
    }

    void serve() {
        while (waitFor(listener_)) {
            const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0) continue;
            for (std::string request = read(socket); !request.empty(); request = read(socket)) {
                if (!reply_(Connection(socket, stop_, request))) break;
            }
            close(socket);
        }
    }

    // The headers, and a body of the length that they tell, or the greeting of TLS; "" when the connection has ended.
    std::string read(int socket) const {
        std::string request;
        std::size_t whole = std::string::npos;
        while (request.size() < whole && waitFor(socket)) {
            char part[4096];
            const ssize_t count = recv(socket, part, sizeof part, 0);
            if (count <= 0) return "";
            request.append(part, static_cast<std::size_t>(count));
            constexpr char kHandshake = 0x16;
            if (request[0] == kHandshake) return request;
            const std::size_t end = request.find("\r\n\r\n"), length = request.find("Content-Length: ");
            if (end == std::string::npos) continue;
            whole = end + 4 + (length < end ? std::stoul(request.substr(length + 16)) : 0);
        }
        return request;
    }

    Reply reply_;
    std::string host_;
    int listener_ = -1;
    int stop_ = eventfd(0, EFD_CLOEXEC);
    std::thread thread_;
};
