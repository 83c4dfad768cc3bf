// walk: the files of a directory, as FindFile finds them.
//
// FindFile keeps a descriptor of each directory that it has entered. Once the process can open no more, it takes
// directories for files and passes over what lies below them, and says nothing. walk notices that in two ways, and ends
// with an error:
//
// - Each time that a file is found, another directory must still open. If not, the "file" may well be a directory.
// - Where they run out while subdirectories are entered, no file is found any more. At that moment at most twice as
//   many descriptors are in use as directories have been entered, and one: those kept, and one for the listing of
//   each level. A walk that stayed below that is complete. Any other is followed once more with a single descriptor,
//   counting how many FindFile needed where.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <dirent.h>
#include <sys/resource.h>

#include "commandLine.h"
#include "failure.h"
#include "krenv.h"
#include "output.h"
#include "paths.h"
#include "terminal.h"
#include "text.h"

namespace {

// --- directories and descriptors ------------------------------------------------------------------------------------

// Opens and closes the directory: 0, or why it cannot be opened.
int openingError(const std::string& directory) {
    DIR* const opened = opendir(directory.c_str());
    if (opened == nullptr) return errno;
    closedir(opened);
    return 0;
}

// FindFile finds nothing, and reports nothing, in what is no directory.
void requireDirectory(const std::string& directory) {
    const int error = openingError(directory);
    if (error == 0) return;
    const std::string why = error == ENOENT ? "no such directory" : error == ENOTDIR ? "not a directory" : "";
    throw Failure("'" + directory + "': " + (why.empty() ? std::strerror(error) : why));
}

// The number of descriptors that this process may have from now on. An open directory takes 32 KiB of memory, so that
// the address space of a 32-bit process would be full at some 100,000: a shortage that no descriptor's number shows.
std::size_t raiseDescriptorLimit() {
    constexpr rlim_t kMost = 65536;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min(limit.rlim_max, kMost);
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<std::size_t>(limit.rlim_cur);
}

// Those below the limit; a process may have inherited others above it, and they take nothing away.
std::size_t openDescriptors(std::size_t limit) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        if (std::stoul(entry.path().filename()) < limit) ++count;
    }
    return count - 1;  // without the one that lists them
}

// The paths of what is in the directory; none at all when it cannot be opened.
std::optional<std::vector<std::string>> pathsIn(const std::string& directory) {
    DIR* const listing = opendir(directory.c_str());
    if (listing == nullptr) return std::nullopt;
    std::vector<std::string> paths;
    while (const dirent* const entry = readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        std::string path = directory + "/";
        path += name;
        if (path.size() <= kLongestPath) paths.push_back(std::move(path));
    }
    closedir(listing);
    return paths;
}

// Whether FindFile needs more than `available` descriptors below `top`: in each directory those of all directories
// entered until then, a listing for each level above, its own, and one to try its entries with.
bool needsMoreDescriptors(const std::string& top, std::size_t available) {
    struct Place {
        std::string path;
        std::size_t depth;
    };
    std::vector<Place> ahead{{top, 0}};  // the next one last
    for (std::size_t kept = 0; !ahead.empty();) {
        const Place place = std::move(ahead.back());
        ahead.pop_back();
        const auto paths = pathsIn(place.path);
        if (!paths) continue;
        if (place.depth > 0) ++kept;
        if (kept + place.depth + 1 + (paths->empty() ? 0 : 1) > available) return true;
        for (auto path = paths->rbegin(); path != paths->rend(); ++path) ahead.push_back({*path, place.depth + 1});
    }
    return false;
}

// --- output ---------------------------------------------------------------------------------------------------------

// Prints each path as it comes, or with --json gathers them.
class Output final : public CFindFileFunctor {
public:
    explicit Output(const CommandLine& line)
        : json_(line.has("json")),
          end_(line.has("null") ? '\0' : '\n'),
          escape_(!line.has("null") && terminalSize().has_value()) {}

    bool operator()(const char* path) override {
        shortage_ = openingError("/");
        if (shortage_ != 0) return false;
        if (json_) {
            paths_.push_back(path);
        } else {
            std::cout << (escape_ ? printable(path) : path) << end_;
        }
        return std::cout.good();
    }

    // Why no further directory could be opened; 0 when that did not happen.
    int shortage() const { return shortage_; }

    void finish() const {
        if (json_) printJson(paths_);
    }

private:
    bool json_;
    char end_;
    bool escape_;  // a name cannot steer the terminal
    int shortage_ = 0;
    Json paths_ = Json::array();
};

[[noreturn]] void failIncomplete(const std::string& directory, int reason, std::size_t limit) {
    throw Failure("'" + directory +
                  "': the walk is incomplete, no further directory could be opened: " + std::strerror(reason) +
                  "\nA walk keeps each directory that it has entered open, and pmenv may have " +
                  std::to_string(limit) + " files open. Walk the subdirectories one by one.");
}

int runWalk(const CommandLine& line) {
    const std::string& directory = line.arguments()[0];
    if (line.has("null") && line.has("json")) {
        throw Failure("--null and --json do not go together; see 'pmenv walk --help'", kExitUsage);
    }
    requireDirectory(directory);
    const std::size_t limit = raiseDescriptorLimit();
    const std::size_t before = openDescriptors(limit);

    Output output(line);
    const bool finished = FindFile(directory.c_str(), line.text("skip").c_str(), line.has("recurse"), &output);
    if (output.shortage() != 0) failIncomplete(directory, output.shortage(), limit);

    const std::size_t entered = openDescriptors(limit) - before;
    const bool certain = !finished || !line.has("recurse") || limit > before + 2 * entered + 1;
    if (!certain && needsMoreDescriptors(directory, limit - before)) failIncomplete(directory, EMFILE, limit);
    output.finish();
    return kExitDone;
}

}  // namespace

Command walkCommand() {
    return {"walk",
            "print the path of every file in a directory",
            {{"DIR", "a directory", false, false, Offer::Directories}},
            {{"recurse", Option::Kind::Flag, nullptr,
              "print the files in its subdirectories too, and follow links to directories"},
             {"skip", Option::Kind::Text, "NAME",
              "skip files of exactly this name; directories of this name are still entered"},
             {"null", Option::Kind::Flag, nullptr, "end each path with a NUL byte, for names that contain a newline"}},
            "pmenv walk /opt/pm/scripts                           the files of this directory, in no order\n"
            "pmenv walk /opt/pm/scripts --recurse --skip README   also all files below it, but no README\n"
            "pmenv walk logs --recurse --null | xargs -0 ls -ld   works with any name",
            runWalk,
            "The paths come in no particular order. A file is anything that cannot be opened as a directory, so a "
            "directory without permission counts as a file, and a link to a directory does not. Paths longer than "
            "4095 characters are skipped. On a terminal, control characters in a name are escaped.\n\n"
            "--recurse goes through the tree directory by directory. The system ends a loop of links after 40 "
            "links. Each directory that was entered stays open until pmenv ends. pmenv raises its limit of open "
            "files as far as it may, up to 65536. If even that is too low for the tree, it prints an error and "
            "exits with 1."};
}
