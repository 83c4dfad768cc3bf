// check: what is wrong with settings files.
#include <iostream>

#include <unistd.h>

#include "check.h"
#include "commandLine.h"
#include "failure.h"
#include "findings.h"
#include "settingsFile.h"

namespace {

struct Counts {
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::size_t unreadable = 0;
};

int printRules(const CommandLine& line) {
    if (line.has("json")) {
        printJson(rulesJson());
    } else {
        std::cout << rulesText(Style(STDOUT_FILENO));
    }
    return kExitDone;
}

// Tells on standard error which file is checked, because it was not named.
std::string fileInForce(const CommandLine& line) {
    std::string file = settingsFile(line);
    if (line.has("ini")) return file;
    const SearchResult result = searchSettingsFile();
    const std::string found = file + ", found in " + result.variable;
    std::cerr << "checking " << found
              << (result.places.empty() ? "" : "; not found before that in" + placesText(result.places)) << "\n";
    return file;
}

std::vector<std::string> filesToCheck(const CommandLine& line) {
    return line.arguments().empty() ? std::vector<std::string>{fileInForce(line)} : line.arguments();
}

void count(const CheckedFile& checked, Counts* counts) {
    for (const CheckFinding& finding : checked.findings) {
        ++(describe(finding.rule).isError ? counts->errors : counts->warnings);
    }
}

void printFindings(const CheckedFile& checked) {
    const Style style(STDOUT_FILENO);
    for (const CheckFinding& finding : checked.findings) std::cout << findingText(checked, finding, style);
}

Json checkedJson(const CheckedFile& checked) {
    Json json{{"file", checked.file}, {"findings", Json::array()}};
    for (const CheckFinding& finding : checked.findings) json["findings"].push_back(findingJson(checked, finding));
    return json;
}

// Checks one file after the other; one that cannot be read does not keep the others from being checked.
Counts checkAll(const CommandLine& line, Json* answer) {
    Counts counts;
    for (const std::string& file : filesToCheck(line)) {
        try {
            const CheckedFile checked = checkFile(file);
            count(checked, &counts);
            if (answer != nullptr) {
                answer->push_back(checkedJson(checked));
            } else {
                printFindings(checked);
            }
        } catch (const Failure& failure) {
            ++counts.unreadable;
            printError(failure.what());
            if (answer != nullptr) answer->push_back({{"file", file}, {"problem", failure.what()}});
        }
    }
    return counts;
}

std::string numbered(std::size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

int run(const CommandLine& line) {
    if (line.has("rules")) return printRules(line);
    const bool asJson = line.has("json");
    Json answer = Json::array();
    const Counts counts = checkAll(line, asJson ? &answer : nullptr);
    if (asJson) {
        printJson(answer);
    } else {
        std::cout.flush();  // the findings first, where both go to one place
        std::cerr << numbered(counts.errors, "error") << ", " << numbered(counts.warnings, "warning") << "\n";
    }
    const bool wrong = counts.errors > 0 || counts.unreadable > 0 || (line.has("strict") && counts.warnings > 0);
    return wrong ? kExitWrong : kExitDone;
}

}  // namespace

Command checkCommand() {
    return {"check",
            "find everything that is wrong with settings files",
            {{"FILE", "a settings file, checked as if it were pressmark.ini; without one, the pressmark.ini in force",
              true, true, Offer::Files}},
            {{"strict", Option::Kind::Flag, nullptr, "exit 1 also when there are only warnings"},
             {"rules", Option::Kind::Flag, nullptr, "print what is looked for, and exit"}},
            "pmenv check                         the pressmark.ini that programs here would load\n"
            "pmenv check conf/*.ini --strict     for a pipeline: exit 1 on any finding\n"
            "pmenv check new.ini --json          findings as data",
            run,
            "Each file is checked as a program would load it as pressmark.ini. A finding is printed as "
            "file:line:column: error: text [rule], with the line and what is meant underlined, as editors and "
            "pipelines understand it. The exit status is 1 when there is an error, with --strict also when "
            "there are only warnings.\n\n"
            "References to process variables are checked against the environment of this command."};
}
