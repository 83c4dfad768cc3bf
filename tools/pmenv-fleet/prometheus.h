// prometheus.h - asks a Prometheus server over HTTP.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "times.h"
#include "verdict/answer.h"

class Prometheus {
public:
    /// Connects when it is asked. All queries together may take `timeout` seconds.
    Prometheus(const std::string& url, double timeout);
    ~Prometheus();
    Prometheus(const Prometheus&) = delete;
    Prometheus& operator=(const Prometheus&) = delete;

    /// The value of an expression at a moment. Throws Failure, which begins with the server's URL.
    Answer query(const std::string& expression, Moment moment);

private:
    class Transfer;

    std::string shown_;  // the URL for messages
    std::unique_ptr<Transfer> transfer_;
};
