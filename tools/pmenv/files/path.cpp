// path: paths split, composed, shortened for display, and made absolute.
#include <algorithm>
#include <iostream>
#include <iterator>

#include "commandLine.h"
#include "failure.h"
#include "knownKeys/knownSecrets.h"
#include "krenv.h"
#include "output.h"
#include "paths.h"
#include "search.h"

namespace {

int printPath(const CommandLine& line, const std::string& path) {
    if (line.has("json")) {
        printJson({{"path", path}});
    } else {
        std::cout << path << "\n";
    }
    return kExitDone;
}

// --- path shorten ---------------------------------------------------------------------------------------------------

int parseWidth(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= 4 && text.find_first_not_of("0123456789") == std::string::npos;
    const int width = digits ? std::stoi(text) : 0;
    if (width >= 1 && width <= static_cast<int>(kLongestPath)) return width;
    throw Failure("WIDTH is a whole number from 1 to " + std::to_string(kLongestPath) + ", not '" + text + "'",
                  kExitUsage);
}

std::size_t narrowestWidth(const std::string& path) {
    KREnvContainerClass env;
    char* name = nullptr;
    char* extension = nullptr;
    env.KRPSplitPath(path.c_str(), nullptr, &name, &extension);
    return std::string(name).size() + std::string(extension).size() + 5;
}

// The library cuts between bytes. What is left of a character in front of the cut is taken away as well.
std::string withoutCutCharacter(std::string shortened, const std::string& path) {
    const auto isMiddle = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; };
    const auto [cut, rest] = std::mismatch(shortened.begin(), shortened.end(), path.begin(), path.end());
    if (rest == path.end() || !isMiddle(*rest)) return shortened;
    auto start = cut;
    while (start != shortened.begin() && isMiddle(*std::prev(start))) --start;
    if (start != shortened.begin()) --start;
    shortened.erase(start, cut);
    return shortened;
}

// --- path abs -------------------------------------------------------------------------------------------------------

bool isBareName(const std::string& path) {
    KREnvContainerClass env;
    return *env.KRPGetPathDirectory(path.c_str()) == '\0';
}

[[noreturn]] void failAbsolute(const std::string& path, const Settings* settings) {
    if (!isBareName(path)) {
        KREnvContainerClass env;
        throw Failure(path + ": there is no directory " + env.KRPGetPathDirectory(path.c_str()));
    }
    const SearchResult result = searchFile(path, {".", "#INCLUDE_PATH"}, settings);
    throw Failure(path + ": not found; looked in" + placesText(result.places));
}

// A bare name that is not in the working directory is searched in the setting INCLUDE_PATH.
std::unique_ptr<const Settings> settingsForAbsolute(const CommandLine& line, const std::string& path) {
    if (!isBareName(path) || searchFile(path, {"."}, nullptr).path) return nullptr;
    return settingsFor(line, {"#INCLUDE_PATH"}, secretsFor);
}

int runSplit(const CommandLine& line) {
    KREnvContainerClass env;
    char* directory = nullptr;
    char* name = nullptr;
    char* extension = nullptr;
    env.KRPSplitPath(checkedPath(line.arguments()[0]), &directory, &name, &extension);
    if (line.has("json")) {
        printJson({{"directory", directory}, {"name", name}, {"extension", extension}});
    } else {
        std::cout << "directory  " << directory << "\nname       " << name << "\nextension  " << extension << "\n";
    }
    return kExitDone;
}

int runMake(const CommandLine& line) {
    const std::vector<std::string>& parts = line.arguments();
    const std::string extension = parts.size() > 2 ? parts[2] : "";
    KREnvContainerClass env;
    const char* const path = env.KRPMakePath(parts[0].c_str(), parts[1].c_str(), extension.c_str());
    if (path == nullptr)
        throw Failure("the composed path is longer than " + std::to_string(kLongestPath) + " characters");
    return printPath(line, path);
}

int runShorten(const CommandLine& line) {
    const std::string path = checkedPath(line.arguments()[0]);
    const int width = parseWidth(line.arguments()[1]);
    KREnvContainerClass env;
    char shortened[kLongestPath + 1];
    if (env.KRPAdjustPathLen(path.c_str(), shortened, width) != nullptr) {
        return printPath(line, withoutCutCharacter(shortened, path));
    }
    throw Failure(path + ": cannot be shortened to " + std::to_string(width) +
                  " characters, its name and extension need " + std::to_string(narrowestWidth(path)));
}

int runAbs(const CommandLine& line) {
    const std::string path = checkedPath(line.arguments()[0]);
    const auto settings = settingsForAbsolute(line, path);
    KREnvContainerClass env;
    char absolute[kLongestPath + 1];
    if (env.KRPGetFullName(path.c_str(), absolute, sizeof absolute) == nullptr) failAbsolute(path, settings.get());
    return printPath(line, absolute);
}

}  // namespace

Command pathSplitCommand() {
    return {"path split",
            "print the directory, the name and the extension of a path",
            {{"PATH", "a path; an existing directory is all directory", false, false, Offer::Files}},
            {},
            "pmenv path split /usr/lib/x.tar.gz   directory /usr/lib, name x.tar, extension gz",
            runSplit,
            "Both / and \\ part directories."};
}

Command pathMakeCommand() {
    return {"path make",
            "compose a path of its parts",
            {{"DIR", "the directory; may be ''", false, false, Offer::Directories},
             {"NAME", "the name"},
             {"EXT", "the extension, without a dot", true}},
            {},
            "pmenv path make /usr/lib x.tar gz   prints /usr/lib/x.tar.gz",
            runMake};
}

Command pathShortenCommand() {
    return {
        "path shorten",
        "shorten a path for display by cutting its middle",
        {{"PATH", "a path", false, false, Offer::Files},
         {"WIDTH",
          "bytes; a path of as many or more is shortened to as many, or to a few less so that no character is cut"}},
        {},
        "pmenv path shorten /home/user/projects/reports/weekly.md 30   prints /home/user/projec...\\weekly.md",
        runShorten};
}

Command pathAbsCommand() {
    return {"path abs",
            "make a path absolute; a bare name is searched in . and in the setting INCLUDE_PATH",
            {{"PATH", "a path whose directory exists, or the name of a file", false, false, Offer::Files}},
            {},
            "pmenv path abs ../lib/x.so   prints /usr/lib/x.so when called in /usr/bin\n"
            "pmenv path abs stdio.h       prints where stdio.h is",
            runAbs,
            "The directory of PATH must exist, the file need not."};
}
