// Measures file search and the directory walk.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>

#include "TempDir.h"
#include "areas.h"
#include "floors.h"
#include "krenv.h"

namespace {

constexpr int kDirectories = 500;
constexpr int kFilesInEach = 20;

// --- KRPFindfile ----------------------------------------------------------------------------------------------------

struct SearchedDirectories {
    std::string list;
    std::vector<std::string> examined;  // the paths that a search looks up, in order

    explicit SearchedDirectories(const TempDir& dir) {
        for (int i = 0; i < 20; ++i) {
            const std::string directory = dir.makeDirectory("settings-" + std::to_string(i));
            list += (list.empty() ? "" : ":") + directory;
            examined.insert(examined.end(), {directory, "engine.cfg", directory + "/engine.cfg"});
        }
        dir.writeFile("settings-19/engine.cfg");
    }
};

void findFile() {
    static KREnvContainerClass container;
    const char* const found =
        container.KRPFindfile("engine.cfg", "$SEARCHED_DIRECTORIES", static_cast<const char*>(nullptr));
    check(found != nullptr, "finding engine.cfg");
}

void examine(const std::vector<std::string>& paths) {
    struct stat status {};
    for (const std::string& path : paths) keep(stat(path.c_str(), &status));
}

// --- FindFile -------------------------------------------------------------------------------------------------------

void plant(const TempDir& dir) {
    for (int i = 0; i < kDirectories; ++i) {
        const std::string name = "tree/directory-" + std::to_string(i);
        dir.makeDirectory(name);
        for (int j = 0; j < kFilesInEach; ++j) dir.writeFile(name + "/file-" + std::to_string(j) + ".txt");
    }
}

struct CountingFunctor : CFindFileFunctor {
    bool operator()(const char* /*path*/) override { return ++count > 0; }
    int count = 0;
};

void walkWithOurs(const std::string& root) {
    CountingFunctor functor;
    FindFile(root.c_str(), "", true, &functor);
    check(functor.count == kDirectories * kFilesInEach, "walking");
}

#ifdef ALTERNATIVES
void walkWithFilesystem(const std::string& root) {
    int count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) count += entry.is_directory() ? 0 : 1;
    check(count == kDirectories * kFilesInEach, "walking");
}
#endif

int openDirectory(const char* path) { return open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK); }

bool isDotEntry(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

// The same two passes as FindFile: each entry is opened to find out its type, and an entered directory stays open.
int walkBare(char* path, std::size_t length) {
    int files = 0;
    const auto append = [&](const char* name) {
        path[length] = '/';
        std::strcpy(path + length + 1, name);
    };
    forEachEntry(path, [&](const char* name, unsigned char) {
        if (isDotEntry(name)) return;
        append(name);
        const int opened = openDirectory(path);
        files += opened < 0 ? 1 : 0;
        if (opened >= 0) close(opened);
        path[length] = '\0';
    });
    forEachEntry(path, [&](const char* name, unsigned char) {
        if (isDotEntry(name)) return;
        append(name);
        if (openDirectory(path) >= 0) files += walkBare(path, std::strlen(path));
        path[length] = '\0';
    });
    return files;
}

void walkWithFloor(const std::string& root) {
    char path[4096];
    std::strcpy(path, root.c_str());
    check(walkBare(path, root.size()) == kDirectories * kFilesInEach, "walking");
}

// A walk leaves a descriptor open for each directory.
void allowManyDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void measureFiles(Report& report) {
    const TempDir dir;
    const SearchedDirectories directories(dir);
    setenv("SEARCHED_DIRECTORIES", directories.list.c_str(), 1);
    report.measure({"KRPFindfile",
                    "20 directories",
                    {0, 1.2},
                    {{Kind::Ours, "", findFile}, {Kind::Floor, "", [&] { examine(directories.examined); }}}});

    allowManyDescriptors();
    plant(dir);
    const std::string root = dir / "tree";
    Row walk{"FindFile", "10,000 files, 500 directories", {0, 1.2}, {}, 1, true};
    walk.ways.push_back({Kind::Ours, "", [root] { walkWithOurs(root); }});
#ifdef ALTERNATIVES
    walk.ways.push_back({Kind::Alternative, "std::filesystem", [root] { walkWithFilesystem(root); }});
#endif
    walk.ways.push_back({Kind::Floor, "", [root] { walkWithFloor(root); }});
    report.measure(walk);
}
