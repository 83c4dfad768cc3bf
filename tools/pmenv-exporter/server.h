// server.h - answers HTTP requests, each on a connection of its own, in a thread of its own.
//
// A client can be slow, silent or hostile. A request may take 8 KB, a connection five seconds, however it fills them, and
// there are at most 128 at a time; those that come then wait until one of them ends.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "listener.h"
#include "pages.h"

struct MHD_Connection;
struct MHD_Daemon;

class Server {
public:
    /// The answer to a request, of its method, its path and its header "Accept". Called in the server's thread.
    using Handler =
        std::function<Answer(const std::string& method, const std::string& path, const std::string& accept)>;

    /// Answers what arrives at the listener's socket from now on. Throws Failure.
    Server(Listener listener, Handler handler);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    const Listener& listener() const { return listener_; }

    /// Ends the connections that have been open for too long. To be called about once a second.
    void endSlowConnections();

private:
    struct Connection {
        int socket;
        double begun;
    };
    friend struct ServerCallbacks;

    Listener listener_;
    Handler handler_;
    std::mutex mutex_;  // for the connections
    std::map<MHD_Connection*, Connection> connections_;
    MHD_Daemon* daemon_;  // the last member: its thread uses the others
};
