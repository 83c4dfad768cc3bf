// ScopedEnv.h - changes an environment variable, or the working directory, for the length of a scope.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

/// Sets a variable, or unsets it with nullptr, and restores it at the end of the scope.
class ScopedEnv {
public:
    ScopedEnv(std::string name, const char* value) : name_(std::move(name)) {
        if (const char* const before = std::getenv(name_.c_str())) before_ = before;
        change(value);
    }
    ~ScopedEnv() { change(before_ ? before_->c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    void change(const char* value) {
        if (value != nullptr) {
            setenv(name_.c_str(), value, 1);
        } else {
            unsetenv(name_.c_str());
        }
    }

    std::string name_;
    std::optional<std::string> before_;
};

/// Changes the working directory and goes back at the end of the scope.
class ScopedCwd {
public:
    explicit ScopedCwd(const std::string& directory) : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(directory);
    }
    ~ScopedCwd() {
        std::error_code ignored;
        std::filesystem::current_path(before_, ignored);
    }
    ScopedCwd(const ScopedCwd&) = delete;
    ScopedCwd& operator=(const ScopedCwd&) = delete;

private:
    std::filesystem::path before_;
};
