#include "output.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <streambuf>

#include <unistd.h>

#include "failure.h"
#include "terminal.h"

namespace {

// The stream of the C library forgets why a write has failed when another one follows, as that of an error message does.
class OutputBuffer final : public std::streambuf {
public:
    OutputBuffer() {
        if (isatty(STDOUT_FILENO) == 0) setp(gathered_, gathered_ + sizeof gathered_);
    }

    int error() const { return error_; }

protected:
    int_type overflow(int_type character) override {
        if (sync() != 0) return traits_type::eof();
        if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
        const char text = traits_type::to_char_type(character);
        return xsputn(&text, 1) == 1 ? character : traits_type::eof();
    }

    std::streamsize xsputn(const char* text, std::streamsize length) override {
        if (pbase() != nullptr) return std::streambuf::xsputn(text, length);
        return write(text, static_cast<std::size_t>(length)) ? length : 0;
    }

    int sync() override {
        const bool written = write(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        if (pbase() != nullptr) setp(gathered_, gathered_ + sizeof gathered_);
        return written ? 0 : -1;
    }

private:
    bool write(const char* text, std::size_t length) {
        for (std::size_t done = 0; done < length && error_ == 0;) {
            const ssize_t count = ::write(STDOUT_FILENO, text + done, length - done);
            if (count >= 0) {
                done += static_cast<std::size_t>(count);
            } else if (errno != EINTR) {
                error_ = errno;
            }
        }
        return error_ == 0;
    }

    char gathered_[64 * 1024];
    int error_ = 0;
};

// Never destroyed: standard output is flushed once more when the process ends.
OutputBuffer& outputBuffer() {
    static OutputBuffer& buffer = *new OutputBuffer;
    return buffer;
}

const char* programName = "pmenv";

std::string dumped(const Json& value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

void gatherOutput() { std::cout.rdbuf(&outputBuffer()); }

void nameProgram(const char* name) { programName = name; }

void printError(const std::string& text) {
    std::cerr << Style(STDERR_FILENO).red(std::string(programName) + ":") << " " << text << "\n";
}

void printWarning(const std::string& text) {
    std::cerr << Style(STDERR_FILENO).yellow(std::string(programName) + ": warning:") << " " << text << "\n";
}

void printJson(const Json& value) { printJson(value, std::cout); }

void printJson(const Json& value, std::ostream& out) { out << dumped(value, 2) + "\n"; }

void printJsonLine(const Json& value) { std::cout << dumped(value, -1) << "\n"; }

void finishOutput() {
    std::cout.flush();
    if (std::cout) return;
    throw Failure(std::string("cannot write the result to standard output: ") + std::strerror(outputBuffer().error()));
}
