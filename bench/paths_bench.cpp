// Measures splitting and composing paths.
#include <filesystem>
#include <string>

#include <sys/stat.h>

#include "TempDir.h"
#include "areas.h"
#include "krenv.h"

namespace {

KREnvContainerClass& container() {
    static KREnvContainerClass container;
    return container;
}

void splitWithOurs(const char* path) {
    char *dir, *name, *ext;
    container().KRPSplitPath(path, &dir, &name, &ext);
    keep(dir);
    keep(name);
    keep(ext);
}

void examine(const char* path) {
    struct stat status {};
    keep(stat(path, &status));
}

void makeWithOurs() { keep(container().KRPMakePath("/opt/pressmark/results", "report", "html")); }

#ifdef ALTERNATIVES
// Makes the same system call as the library, to see whether the whole path is a directory.
void splitWithFilesystem(const std::string& text) {
    std::error_code ignored;
    const std::filesystem::path path(text);
    keep(std::filesystem::is_directory(path, ignored));
    keep(path.parent_path().string().data());
    keep(path.stem().string().data());
    keep(path.extension().string().data());
}

void makeWithFilesystem() {
    std::filesystem::path path("/opt/pressmark/results");
    path /= "report";
    path += ".html";
    keep(path.c_str());
}
#endif

}  // namespace

void measurePaths(Report& report) {
    const TempDir dir;
    const std::string path = dir.writeFile("report.html");
    Row split{"KRPSplitPath", "a file's path", {1, 1.15}, {}};
    split.ways.push_back({Kind::Ours, "", [&path] { splitWithOurs(path.c_str()); }});
    Row make{"KRPMakePath", "three parts", {1, 0}, {}};
    make.ways.push_back({Kind::Ours, "", makeWithOurs});
#ifdef ALTERNATIVES
    split.ways.push_back({Kind::Alternative, "std::filesystem", [&path] { splitWithFilesystem(path); }});
    make.ways.push_back({Kind::Alternative, "std::filesystem", makeWithFilesystem});
#endif
    split.ways.push_back({Kind::Floor, "", [&path] { examine(path.c_str()); }});
    report.measure(split);
    report.measure(make);
}
