#include "check/input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "check/namelessFile.h"
#include "failure.h"

namespace {

constexpr char kStandardInput[] = "-";

// A byte more than the library reads, so that it says itself what is too much.
constexpr std::size_t kMostBytes = (std::size_t{256} << 20) + 1;

[[noreturn]] void failToRead(const std::string& file, int error) {
    throw Failure("cannot read the settings: " + file + ": " + std::strerror(error));
}

class Descriptor {
public:
    explicit Descriptor(const std::string& file)
        : descriptor_(file == kStandardInput ? dup(STDIN_FILENO)
                                             : open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {
        if (descriptor_ < 0) failToRead(file, errno);
    }
    ~Descriptor() { close(descriptor_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

// What can be read once only. The library reads a file twice.
bool isStream(const std::string& file) {
    struct stat status {};
    if (file == kStandardInput) return true;
    return stat(file.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
}

// In a directory: a pipe there is no settings file, and reading it would wait. A link to nothing is told of when it is read.
bool isFile(const std::filesystem::directory_entry& entry) {
    std::error_code error;
    return entry.is_regular_file(error) || !entry.exists(error);
}

}  // namespace

std::vector<std::string> settingsFilesOf(const std::string& argument) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::is_directory(argument, error)) return {argument};
    std::vector<std::string> files;
    for (fs::recursive_directory_iterator at(argument, error), end; !error && at != end; at.increment(error)) {
        if (at->path().extension() == ".ini" && isFile(*at)) files.push_back(at->path());
    }
    if (error) failToRead(argument, error.value());
    if (files.empty()) throw Failure("cannot read the settings: " + argument + ": no *.ini file in this directory");
    std::sort(files.begin(), files.end());
    return files;
}

void withInput(const std::string& file, const InputVisitor& visit) {
    if (!isStream(file)) return visit(file, file);
    const std::string name = file == kStandardInput ? "<stdin>" : file;
    const Descriptor stream(file);
    NamelessFile copy("");
    if (!copy.copyFrom(stream.get(), kMostBytes)) failToRead(name, errno);
    visit(copy.path(), name);
}
