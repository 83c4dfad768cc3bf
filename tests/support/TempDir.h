// TempDir.h - a directory that exists for the length of a scope, and functions to write and read files in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

/// A new directory, removed with its contents at the end of the scope.
class TempDir {
public:
    explicit TempDir(const std::string& above = "/tmp") : path_(above + "/krenv-test-XXXXXX") {
        if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot make a directory below " + above);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    /// The path of `name` inside; nothing is created.
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

    /// Creates the directory `name` and those above it. Returns its path.
    std::string makeDirectory(std::string_view name) const {
        std::filesystem::create_directories(*this / name);
        return *this / name;
    }
    /// Creates or replaces the file `name`. Returns its path.
    std::string writeFile(std::string_view name, std::string_view content = {}) const {
        std::ofstream file(*this / name, std::ios::binary);
        file << content;
        if (!file.flush()) throw std::runtime_error("cannot write " + (*this / name));
        return *this / name;
    }

private:
    std::string path_;
};

/// The content of the whole file.
inline std::string readFileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
