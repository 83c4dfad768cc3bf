// Splitting and composing paths.
#include <filesystem>
#include <string>

#include "krenv.h"
#include "pairs.h"

namespace {

constexpr char kPath[] = "/opt/pressmark/results/nightly/engine-7/report.html";

KREnvContainerClass& container() {
    static KREnvContainerClass container;
    return container;
}

void splitWithOurs() {
    char *dir, *name, *ext;
    container().KRPSplitPath(kPath, &dir, &name, &ext);
    benchmark::DoNotOptimize(dir);
    benchmark::DoNotOptimize(name);
    benchmark::DoNotOptimize(ext);
}

void splitWithPath() {
    const std::filesystem::path path(kPath);
    benchmark::DoNotOptimize(path.parent_path().string().data());
    benchmark::DoNotOptimize(path.stem().string().data());
    benchmark::DoNotOptimize(path.extension().string().data());
}

// KRPSplitPath also asks the file system whether the whole path is a directory; so does this one.
void testAndSplitWithPath() {
    std::error_code ignored;
    benchmark::DoNotOptimize(std::filesystem::is_directory(kPath, ignored));
    splitWithPath();
}

void makeWithOurs() { benchmark::DoNotOptimize(container().KRPMakePath("/opt/pressmark/results", "report", "html")); }

void makeWithPath() {
    std::filesystem::path path("/opt/pressmark/results");
    path /= "report";
    path += ".html";
    benchmark::DoNotOptimize(path.c_str());
}

}  // namespace

void addPathPairs() {
    addPair("split a path (with its directory test)", "filesystem::path", splitWithOurs, splitWithPath);
    addPair("split a path (with its directory test)", "path and is_directory", splitWithOurs, testAndSplitWithPath);
    addPair("compose a path", "filesystem::path", makeWithOurs, makeWithPath);
}
