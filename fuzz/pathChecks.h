// pathChecks.h - calls the path functions with any texts and sizes, and compares the results with a plain implementation of
// the rules. Buffers are exactly as large as promised, so that the address sanitizer detects each character written outside.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <sys/stat.h>

#include "fuzzing.h"
#include "krenv.h"

// --- a file system of a few directories: the calls of a real one would take most of the time ------------------------

namespace {

constexpr char kCurrentDirectory[] = "/home/tester";

bool isThere(const char* path) {
    // No strcmp: the fuzzer looks into the arguments of each, which took a fifth of all time.
    constexpr std::string_view kDirectories[] = {"/", ".", "..", "/tmp", "/usr/bin", "tmp/"};
    const bool found = std::find(std::begin(kDirectories), std::end(kDirectories), path) != std::end(kDirectories);
    if (!found) errno = ENOENT;
    return found;
}

}  // namespace

extern "C" int __wrap___stat64_time64(const char* path, struct stat* status) {
    *status = {};
    status->st_mode = S_IFDIR;
    return isThere(path) ? 0 : -1;
}

extern "C" char* __wrap_realpath(const char* path, char* resolved) {
    if (!isThere(path)) return nullptr;
    return std::strcpy(resolved, *path == '/' ? path : kCurrentDirectory);
}

extern "C" char* __wrap_getcwd(char* directory, std::size_t size) {
    if (size < sizeof kCurrentDirectory) {
        errno = ERANGE;
        return nullptr;
    }
    return std::strcpy(directory, kCurrentDirectory);
}

// --- the rules ------------------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t kLongestPath = 4095;

struct Parts {
    std::string dir;
    std::string name;
    std::string ext;
};

Parts splitSlowly(const std::string& path) {
    if (path.size() <= kLongestPath && KRPIsClosedFileADirectory(path.c_str())) return {path, "", ""};
    const std::string cut = path.substr(0, kLongestPath);
    const std::size_t separator = cut.find_last_of("/\\");
    Parts parts;
    if (separator != std::string::npos) parts.dir = cut.substr(0, separator);
    parts.name = separator != std::string::npos ? cut.substr(separator + 1) : cut;
    const std::size_t dot = parts.name.rfind('.');
    if (dot != std::string::npos) {
        parts.ext = parts.name.substr(dot + 1);
        parts.name.erase(dot);
    }
    return parts;
}

void checkSplit(KREnvContainerClass& env, const std::string& path) {
    char *dir = nullptr, *name = nullptr, *ext = nullptr;
    env.KRPSplitPath(path.c_str(), &dir, &name, &ext);
    const Parts expected = splitSlowly(path);
    requireEqual(expected.dir, dir, "the directory");
    requireEqual(expected.name, name, "the name");
    requireEqual(expected.ext, ext, "the extension");
}

// When the directory is empty, the result depends on the earlier content of the buffer.
void checkMake(KREnvContainerClass& env, const std::string& dir, const std::string& name, const std::string& ext,
               std::string* made) {
    std::string expected = dir.empty() ? *made : dir;
    if (!dir.empty() && dir.back() != '/') expected += "/";
    expected += name + (ext.empty() ? "" : "." + ext);
    const char* const actual = env.KRPMakePath(dir.c_str(), name.c_str(), ext.c_str());
    require((expected.size() <= kLongestPath) == (actual != nullptr), "a path is composed when it fits");
    if (actual == nullptr) return;
    requireEqual(expected, actual, "the composed path");
    *made = expected;
}

void checkShorten(KREnvContainerClass& env, const std::string& path, int width) {
    // Room for the longer of the two results: the path itself, or `width` characters.
    const std::size_t room = std::max<std::size_t>(path.size(), static_cast<std::size_t>(std::max(width, 0))) + 1;
    const std::unique_ptr<char[]> out(new char[room]);
    const char* const shortened = env.KRPAdjustPathLen(path.c_str(), out.get(), width);
    if (path.size() < static_cast<unsigned>(width)) {
        requireEqual(path, shortened, "a short path");
    } else if (shortened != nullptr) {
        require(std::string(shortened).size() == static_cast<std::size_t>(width), "exactly as wide as asked for");
    }
}

void checkFullName(KREnvContainerClass& env, const std::string& path, int size) {
    const std::unique_ptr<char[]> out(new char[kLongestPath + 1]);
    const char* const full = env.KRPGetFullName(path.c_str(), out.get(), size);
    require(full == nullptr || std::string(full).size() <= kLongestPath, "a full name fits a path");
    const std::unique_ptr<char[]> small(new char[static_cast<std::size_t>(std::max(size, 1))]);
    KRPGetCurrentDir(small.get(), size);
}

void checkRest(KREnvContainerClass& env, const std::string& path, const std::string& other) {
    env.KRPReplacePathExt(path.c_str(), other.c_str());
    env.KRPReplacePathName(path.c_str(), other.c_str());
    env.KRPConcatDirAndName(path.c_str(), other.c_str());
    env.KRPResolvePathVarNoKREnv(path.c_str());
    env.searchInPath(other.c_str(), path.c_str());
    env.KRPResolveFilePathNoKREnv(other.c_str(), path.c_str());
    env.KRPPathFileExist(path.c_str(), other.c_str());
}

}  // namespace

// The input: two bytes that give the width, then texts that end with newlines, each up to its first NUL.
template <class TextOf>
void checkPaths(const std::uint8_t* data, std::size_t size, TextOf textOfLine) {
    hushLog();
    if (size < 2) return;
    const int width = data[0] == 255 ? -1 : data[0] * (data[1] % 8 == 0 ? 40 : 1);
    std::string_view rest = textOf(data + 2, size - 2);
    std::vector<std::string> texts;
    while (!rest.empty() && texts.size() < 9) texts.push_back(textOfLine(takeUntil(&rest, '\n')).c_str());
    texts.resize(std::max<std::size_t>(texts.size(), 3));

    KREnvContainerClass env;
    std::string made;
    for (std::size_t i = 0; i + 2 < texts.size(); i += 3) checkMake(env, texts[i], texts[i + 1], texts[i + 2], &made);
    for (const std::string& text : texts) {
        checkSplit(env, text);
        checkShorten(env, text, width);
        checkFullName(env, text, width);
        checkRest(env, text, texts[0]);
    }
}
