// diff: in what the settings of two files differ, and why.
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include <unistd.h>

#include "check/input.h"
#include "commandLine.h"
#include "diff/comparison.h"
#include "diff/comparisonText.h"
#include "diff/variables.h"
#include "failure.h"
#include "knownKeys/knownSecrets.h"
#include "units.h"

namespace {

struct Counts {
    std::size_t same = 0;
    std::size_t different = 0;
    std::size_t onlyA = 0;
    std::size_t onlyB = 0;
    std::size_t filesOnlyA = 0;
    std::size_t filesOnlyB = 0;
    std::size_t unreadable = 0;

    bool any() const { return different + onlyA + onlyB + filesOnlyA + filesOnlyB > 0; }
};

// The files of a directory by their names in it, or the file itself.
using Files = std::map<std::string, std::string>;

Files filesOf(const std::string& argument) {
    std::error_code error;
    if (!std::filesystem::is_directory(argument, error)) return {{"", argument}};
    Files files;
    for (const std::string& file : settingsFilesOf(argument)) {
        files[std::filesystem::path(file).lexically_relative(argument)] = file;
    }
    return files;
}

class Run {
public:
    explicit Run(const CommandLine& line);

    int compareAll();

private:
    void comparePair(const std::string& a, const std::string& b);
    Comparison compared(const std::string& a, const std::string& b) const;
    Side read(const std::string& file, const std::optional<Variables>& variables) const;
    void missFile(const std::string& file, bool isInA);
    void count(const Comparison& comparison);
    void show(const Comparison& comparison);
    std::string summary() const;

    const CommandLine& line_;
    bool asJson_;
    std::string a_;
    std::string b_;
    std::optional<Variables> variablesA_;
    std::optional<Variables> variablesB_;
    Form form_;
    Style style_;
    Counts counts_;
    Json files_ = Json::array();
};

std::optional<Variables> variablesOf(const CommandLine& line, const char* option) {
    if (!line.has(option)) return std::nullopt;
    return readVariables(line.text(option));
}

Run::Run(const CommandLine& line)
    : line_(line),
      asJson_(line.has("json")),
      a_(line.arguments()[0]),
      b_(line.arguments()[1]),
      variablesA_(variablesOf(line, "env-a")),
      variablesB_(variablesOf(line, "env-b")),
      form_(line.has("raw") ? Form::Stored : Form::Expanded),
      style_(STDOUT_FILENO) {}

// One file after the other; one that cannot be read does not keep the others from being compared.
int Run::compareAll() {
    const Files filesA = filesOf(a_);
    const Files filesB = filesOf(b_);
    for (const auto& [name, file] : filesA) {
        const auto other = filesB.find(name);
        if (other == filesB.end()) {
            missFile(file, true);
        } else {
            comparePair(file, other->second);
        }
    }
    for (const auto& [name, file] : filesB) {
        if (filesA.count(name) == 0) missFile(file, false);
    }
    if (asJson_) {
        printJson({{"equal", !counts_.any() && counts_.unreadable == 0}, {"files", files_}});
    } else {
        std::cout << summary() << "\n";
    }
    if (counts_.unreadable > 0) return kExitCannotTell;
    return counts_.any() ? kExitWrong : kExitDone;
}

void Run::comparePair(const std::string& a, const std::string& b) {
    try {
        const Comparison comparison = compared(a, b);
        count(comparison);
        show(comparison);
    } catch (const Failure& failure) {
        ++counts_.unreadable;
        std::cout.flush();
        printError(failure.what());
        if (asJson_) files_.push_back({{"a", a}, {"b", b}, {"problem", failure.what()}});
    }
}

Comparison Run::compared(const std::string& a, const std::string& b) const {
    const Side sideA = read(a, variablesA_);
    return compareSides(sideA, read(b, variablesB_));
}

Side Run::read(const std::string& file, const std::optional<Variables>& variables) const {
    std::optional<Side> side;
    withInput(file, [&](const std::string& path, const std::string& name) {
        side = readSide({path, name, variables, form_, secretsFor(line_, path)});
    });
    return std::move(*side);
}

void Run::missFile(const std::string& file, bool isInA) {
    ++(isInA ? counts_.filesOnlyA : counts_.filesOnlyB);
    if (asJson_) {
        files_.push_back({{"a", isInA ? Json(file) : Json()}, {"b", isInA ? Json() : Json(file)}});
    } else {
        std::cout << "only " << (isInA ? "A" : "B") << "  " << file << "\n\n";
    }
}

void Run::count(const Comparison& comparison) {
    counts_.same += comparison.same;
    for (const Difference& difference : comparison.differences) {
        ++(!difference.b ? counts_.onlyA : !difference.a ? counts_.onlyB : counts_.different);
    }
}

void Run::show(const Comparison& comparison) {
    if (asJson_) {
        files_.push_back(comparisonJson(comparison));
    } else if (!comparison.differences.empty()) {
        std::cout << "A  " << comparison.a << "\nB  " << comparison.b << "\n\n"
                  << comparisonText(comparison, style_) << "\n";
    }
}

std::string Run::summary() const {
    const std::string unreadable =
        counts_.unreadable == 0 ? "" : ", " + countText(counts_.unreadable, "comparison") + " not made";
    if (!counts_.any() && counts_.unreadable == 0) return "no difference in " + countText(counts_.same, "setting");
    std::string text = countText(counts_.different, "setting") + (counts_.different == 1 ? " differs, " : " differ, ") +
                       std::to_string(counts_.onlyA) + " only in A, " + std::to_string(counts_.onlyB) + " only in B";
    const std::size_t files = counts_.filesOnlyA + counts_.filesOnlyB;
    if (files > 0) text += ", " + countText(files, "file") + " only in one";
    return text + "; " + std::to_string(counts_.same) + " do not differ" + unreadable;
}

void checkUsage(const CommandLine& line) {
    const auto isDirectory = [](const std::string& argument) {
        std::error_code error;
        return std::filesystem::is_directory(argument, error);
    };
    const std::string& a = line.arguments()[0];
    const std::string& b = line.arguments()[1];
    const auto fail = [](const std::string& what) { throw Failure(what + "; see 'pmenv diff --help'", kExitUsage); };
    if (line.has("ini")) fail("--ini and 'diff' do not go together, which is given what it compares");
    if (a == "-" && b == "-") fail("standard input cannot be both A and B");
    if (isDirectory(a) != isDirectory(b)) {
        fail("'" + (isDirectory(a) ? a : b) + "' is a directory and '" + (isDirectory(a) ? b : a) + "' is none");
    }
}

// 1 is what a script takes for a difference, so that nothing else may end with it.
int runDiff(const CommandLine& line) {
    checkUsage(line);
    try {
        const int exitCode = Run(line).compareAll();
        finishOutput();
        return exitCode;
    } catch (const Failure& failure) {
        throw Failure(failure.what(), kExitCannotTell);
    } catch (const std::exception& error) {
        throw Failure(std::string("stopped by an unexpected error: ") + error.what(), kExitCannotTell);
    }
}

}  // namespace

Command diffCommand() {
    return {
        "diff",
        "print in what the settings of two files differ, and why",
        {{"A",
          "a settings file, read as if it were pressmark.ini; a directory for all *.ini below it; - for standard "
          "input",
          false, false, Offer::Files},
         {"B", "what it is compared with; a directory where A is one", false, false, Offer::Files}},
        {{"raw", Option::Kind::Flag, nullptr, "compare the values as they are stored, as 'get --raw' prints them"},
         {"env-a", Option::Kind::File, "FILE",
          "the environment variables of A: NAME=value lines, as 'env' prints them"},
         {"env-b", Option::Kind::File, "FILE", "the environment variables of B"},
         showSecretsOption()},
        "pmenv diff new.ini pressmark.ini          settings whose values differ, or that one has, each with the "
        "reason\n"
        "pmenv diff new.ini pressmark.ini --json   the same as data\n"
        "pmenv diff conf conf                      all *.ini of two directories\n"
        "cat new.ini | pmenv diff - pressmark.ini  a file that comes from somewhere else",
        runDiff,
        "Each side is read as a program would read it as pressmark.ini, with the environment of this command or with "
        "the "
        "variables of --env-a and --env-b and no others. Compared is what a program gets, so that two files that are "
        "written differently may not differ. A value that cannot be read is the same as another one that cannot be "
        "read.\n\n"
        "Behind the values stands why they differ: the text of the setting itself, or the reference in it that comes "
        "out differently, down to the line or the variable that makes the difference. A place like 35:16 is a line and "
        "a column. Up to five reasons are shown for a setting.\n\n"
        "Of directories, files of the same name are compared; a file that only one has is a difference.\n\n"
        "The exit code is 0 when nothing differs, 1 when something does, and 4 when no comparison was possible, "
        "because a file cannot be read. Files of --env-a and --env-b have a NAME=value on each line, which counts "
        "as it stands; blank lines and lines that begin with # are skipped.\n\n"
        "What is secret is shown as (hidden), as 'list' does; that it differs is shown. --show-secrets shows all.\n\n"
        "With --json the answer is an object with equal, and files, a list with an object for each pair: a and b (the "
        "files, null where there is none), same (how many settings do not differ), settings (those that do), or "
        "problem "
        "(why it could not be compared). Each setting has key, a and b (null, or an object with line, column and "
        "value, "
        "which is null with a problem where there is none), and because, a list of reasons. A reason has reference "
        "(null "
        "for the setting's own text), through (the references that lead to it), known (false when it could not be "
        "followed further), and a and b (text, and line and column of a setting). leftOut tells why the other side has "
        "no value though it has an entry. Where a text is cut, valueLength and the like give its length; where "
        "something "
        "is hidden in it, valueHidden and the like are true."};
}
