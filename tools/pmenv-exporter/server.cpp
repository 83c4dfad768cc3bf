#include "server.h"

#include <utility>

#include <microhttpd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "failure.h"
#include "kernel/files.h"

namespace {

constexpr unsigned kMostConnections = 128;
constexpr unsigned kLongestSilence = 5;    // seconds
constexpr double kLongestConnection = 5;   // seconds, whatever it does
constexpr std::size_t kMostMemory = 8192;  // of a connection: its request, and the headers of the answer

using SharedText = std::shared_ptr<const std::string>;

// The text lives until the last part of it has been sent. Nobody changes it, whatever the library's types say.
MHD_Response* responseOf(const SharedText& text) {
    return MHD_create_response_from_buffer_with_free_callback_cls(
        text->size(), const_cast<char*>(text->data()), [](void* shared) { delete static_cast<SharedText*>(shared); },
        new SharedText(text));
}

MHD_Result send(MHD_Connection* connection, const Answer& answer) {
    MHD_Response* const response = responseOf(answer.body);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, "Content-Type", answer.type.c_str());
    MHD_add_response_header(response, "Connection", "close");
    if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) MHD_add_response_header(response, "Allow", "GET, HEAD");
    const MHD_Result queued = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response);
    return queued;
}

}  // namespace

// What the library calls, in its thread.
struct ServerCallbacks {
    static MHD_Result answer(void* self, MHD_Connection* connection, const char* path, const char* method, const char*,
                             const char*, std::size_t*, void**) {
        const char* const accept = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Accept");
        try {
            return send(connection,
                        static_cast<Server*>(self)->handler_(method, path, accept != nullptr ? accept : ""));
        } catch (const std::exception&) {
            return MHD_NO;  // no memory; the connection is closed
        }
    }

    static void notice(void* self, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode what) {
        auto* const server = static_cast<Server*>(self);
        const std::lock_guard lock(server->mutex_);
        if (what == MHD_CONNECTION_NOTIFY_CLOSED) {
            server->connections_.erase(connection);
            return;
        }
        const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
        server->connections_[connection] = {info->connect_fd, kernel::clockSeconds()};
    }
};

// The library closes the socket that it listens at, so it gets one of its own.
Server::Server(Listener listener, Handler handler)
    : listener_(std::move(listener)),
      handler_(std::move(handler)),
      daemon_(MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, 0, nullptr, nullptr, ServerCallbacks::answer, this,
                               MHD_OPTION_LISTEN_SOCKET, dup(listener_.descriptor()), MHD_OPTION_CONNECTION_LIMIT,
                               kMostConnections, MHD_OPTION_CONNECTION_TIMEOUT, kLongestSilence,
                               MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMostMemory, MHD_OPTION_STRICT_FOR_CLIENT, 1,
                               MHD_OPTION_NOTIFY_CONNECTION, ServerCallbacks::notice, this, MHD_OPTION_END)) {
    if (daemon_ == nullptr) throw Failure("cannot answer requests at " + listener_.address());
}

Server::~Server() { MHD_stop_daemon(daemon_); }

// The library notices the end of a connection like that of a client that goes away.
void Server::endSlowConnections() {
    const double now = kernel::clockSeconds();
    const std::lock_guard lock(mutex_);
    for (const auto& [connection, open] : connections_) {
        if (now - open.begun > kLongestConnection) shutdown(open.socket, SHUT_RDWR);
    }
}
