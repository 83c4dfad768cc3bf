#include "output.h"

#include <cerrno>
#include <cstring>
#include <iostream>

#include <unistd.h>

#include "failure.h"
#include "terminal.h"

namespace {

std::string dumped(const Json& value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

void printError(const std::string& text) { std::cerr << Style(STDERR_FILENO).red("pmenv:") << " " << text << "\n"; }

void printWarning(const std::string& text) {
    std::cerr << Style(STDERR_FILENO).yellow("pmenv: warning:") << " " << text << "\n";
}

void printJson(const Json& value) { std::cout << dumped(value, 2) << "\n"; }

void printJsonLine(const Json& value) { std::cout << dumped(value, -1) << "\n"; }

void finishOutput() {
    errno = 0;
    std::cout.flush();
    if (std::cout) return;
    const int error = errno;
    throw Failure(std::string("cannot write the result to standard output") +
                  (error != 0 ? std::string(": ") + std::strerror(error) : ""));
}
