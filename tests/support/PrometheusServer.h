// PrometheusServer.h - a real Prometheus with data that a test has made.
#pragma once

#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "support/Subprocess.h"

/// A server with the data in DIRECTORY/data on the loopback, at a port that it chooses, for the length of a scope.
class PrometheusServer {
public:
    explicit PrometheusServer(const std::string& directory) : log_(directory + "/log") {
        const std::string config = directory + "/empty.yml", storage = "--storage.tsdb.path=" + directory + "/data";
        std::ofstream(config).flush();
        pid_ = fork();
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int log = open(log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        execl("/usr/bin/prometheus", "prometheus", ("--config.file=" + config).c_str(), storage.c_str(),
              "--web.listen-address=127.0.0.1:0", nullptr);
        _exit(127);
    }
    ~PrometheusServer() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    PrometheusServer(const PrometheusServer&) = delete;
    PrometheusServer& operator=(const PrometheusServer&) = delete;

    static bool isInstalled() { return ::isInstalled("/usr/bin/prometheus") && ::isInstalled("/usr/bin/promtool"); }

    /// Adds the samples of a file to the data in a directory.
    static void takeIn(const std::string& openMetrics, const std::string& data) {
        const ProgramResult made =
            runProgram({"/usr/bin/promtool", "tsdb", "create-blocks-from", "openmetrics", openMetrics, data});
        EXPECT_EQ(made.status, 0) << made.out << made.err;
    }

    /// The samples of all series that the expression selects, as its JSON has them; null when it does not answer.
    nlohmann::json query(const std::string& expression, const std::string& time) const {
        const ProgramResult result = runProgram(
            {"/usr/bin/promtool", "query", "instant", "--format=json", "--time=" + time, address(), expression});
        EXPECT_EQ(result.status, 0) << result.err << readFileText(log_);
        return result.status == 0 ? nlohmann::json::parse(result.out) : nlohmann::json();
    }

    /// Waits for it. False when it ends instead, or is not ready in time.
    bool isReady() const {
        for (int i = 0; i < 600; ++i) {
            if (readFileText(log_).find("Server is ready to receive web requests") != std::string::npos) return true;
            if (waitpid(pid_, nullptr, WNOHANG) != 0) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        ADD_FAILURE() << readFileText(log_);
        return false;
    }

    /// Its URL: it logs the port that it listens on.
    std::string address() const {
        const std::string log = readFileText(log_), before = "msg=\"Listening on\" address=";
        const std::size_t begin = log.find(before) + before.size();
        return "http://" + log.substr(begin, log.find('\n', begin) - begin);
    }

private:
    std::string log_;
    pid_t pid_ = -1;
};
