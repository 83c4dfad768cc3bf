#include "diff/variables.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include <unistd.h>

#include "failure.h"

namespace {

[[noreturn]] void fail(const std::string& place, const std::string& what) {
    throw Failure("cannot read the variables: " + place + ": " + what, kExitCannotTell);
}

// The line is not quoted: a variable may hold a secret.
void addVariable(Variables& variables, const std::string& line, const std::string& place) {
    const std::size_t equals = line.find('=');
    const std::string name = line.substr(0, equals);
    if (equals == std::string::npos || name.empty() || name.find_first_of(" \t") != std::string::npos) {
        fail(place, "expected NAME=value");
    }
    if (line.find('\0') != std::string::npos) fail(place, "a NUL byte");
    variables[name] = line.substr(equals + 1);
}

bool isSkipped(const std::string& line) { return line.find_first_not_of(" \t") == std::string::npos || line[0] == '#'; }

}  // namespace

Variables readVariables(const std::string& file) {
    constexpr std::size_t kMostBytes = std::size_t{16} << 20;
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (!stream) fail(file, std::strerror(errno));
    Variables variables;
    std::size_t bytes = 0;
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        const std::string place = file + ":" + std::to_string(++number);
        bytes += line.size();
        if (bytes > kMostBytes) fail(place, "the file is larger than 16 MiB");
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!isSkipped(line)) addVariable(variables, line, place);
    }
    if (stream.bad()) fail(file, std::strerror(errno));
    return variables;
}

ScopedVariables::ScopedVariables(const Variables& variables) : before_(environ) {
    for (const auto& [name, value] : variables) texts_.emplace_back(name).append("=").append(value);
    for (std::string& text : texts_) pointers_.push_back(text.data());
    pointers_.push_back(nullptr);
    environ = pointers_.data();
}

ScopedVariables::~ScopedVariables() { environ = before_; }
