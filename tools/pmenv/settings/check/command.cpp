// check: what is wrong with settings files.
#include <functional>
#include <iostream>
#include <memory>

#include <unistd.h>

#include "check/findings.h"
#include "check/formats/formats.h"
#include "check/input.h"
#include "check/keysDraft.h"
#include "commandLine.h"
#include "failure.h"
#include "knownKeys/chosenKeys.h"
#include "knownKeys/knownSecrets.h"
#include "settingsFile.h"
#include "units.h"

namespace {

struct Counts {
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::size_t allowed = 0;
    std::size_t unreadable = 0;
};

[[noreturn]] void failUsage(const std::string& what) { throw Failure(what + "; see 'pmenv check --help'", kExitUsage); }

std::string formatOf(const CommandLine& line) { return line.text("format", line.has("json") ? "json" : "text"); }

int printRules(const CommandLine& line) {
    const std::string format = formatOf(line);
    if (format == "json") {
        printJson(rulesJson());
    } else if (format == "text") {
        std::cout << rulesText(Style(STDOUT_FILENO));
    } else {
        failUsage("--rules are printed as text or json, not as " + format);
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

// What is checked, and what came of it.
class Run {
public:
    Run(const CommandLine& line, FindingsWriter& writer)
        : line_(line),
          ignored_(line.texts("ignore")),
          keys_(keysOfOption(line)),
          secrets_(secretsOf(line)),
          writer_(writer) {}

    Counts checkAll();

private:
    void attempt(const std::string& argument, const std::function<void()>& check);
    void checkInput(const std::string& file);
    void checkFurther(const std::string& name);
    void take(const CheckedFile& checked);

    const CommandLine& line_;
    std::vector<std::string> ignored_;
    std::optional<KnownKeys> keys_;  // of --keys
    Secrets secrets_;
    FindingsWriter& writer_;
    Counts counts_;
};

// One file after the other; one that cannot be read does not keep the others from being checked.
Counts Run::checkAll() {
    const std::string further = furtherName(line_);
    if (!further.empty()) {
        attempt(further, [&] { checkFurther(further); });
    } else if (line_.arguments().empty()) {
        const std::string file = fileInForce(line_);
        attempt(file, [&] { checkInput(file); });
    }
    for (const std::string& argument : line_.arguments()) {
        std::vector<std::string> files;
        attempt(argument, [&] { files = settingsFilesOf(argument); });
        for (const std::string& file : files) attempt(file, [&] { checkInput(file); });
    }
    return counts_;
}

void Run::attempt(const std::string& argument, const std::function<void()>& check) {
    try {
        check();
    } catch (const Failure& failure) {
        ++counts_.unreadable;
        printError(failure.what());
        writer_.addUnreadable(argument, failure.what());
    }
}

void Run::checkInput(const std::string& file) {
    withInput(file, [&](const std::string& path, const std::string& name) {
        take(checkFile({path, name, "", ignored_, keys_ ? &*keys_ : nullptr, secrets_}));
    });
}

void Run::checkFurther(const std::string& name) {
    const std::string pressmark = settingsFile(line_);
    const std::string file = furtherFile(Settings(pressmark), name);
    take(checkFile({file, file, pressmark, ignored_, keys_ ? &*keys_ : nullptr, secretsFor(line_, pressmark)}));
}

void Run::take(const CheckedFile& checked) {
    for (const CheckFinding& finding : checked.findings) {
        ++(finding.rule->isError() ? counts_.errors : counts_.warnings);
    }
    counts_.allowed += checked.allowed;
    writer_.add(checked);
}

std::string summaryOf(const Counts& counts) {
    std::string text = countText(counts.errors, "error") + ", " + countText(counts.warnings, "warning");
    if (counts.allowed > 0) text += ", " + std::to_string(counts.allowed) + " allowed";
    return counts.unreadable == 0 ? text : text + ", " + countText(counts.unreadable, "file") + " not read";
}

void checkUsage(const CommandLine& line) {
    const bool hasFiles = !line.arguments().empty();
    if (hasFiles && line.has("ini")) failUsage("FILE and --ini do not go together, each names what is checked");
    if (hasFiles && line.has("file")) failUsage("FILE and --file do not go together");
    if (line.has("write-keys") && !hasFiles) failUsage("--write-keys needs a FILE");
    if (line.has("json") && formatOf(line) != "json")
        failUsage("--json and --format " + formatOf(line) + " contradict");
}

int writeKeys(const CommandLine& line) {
    KeysDraft draft;
    for (const std::string& argument : line.arguments()) {
        for (const std::string& file : settingsFilesOf(argument)) {
            withInput(file, [&](const std::string& path, const std::string& name) { draft.add(path, name); });
        }
    }
    std::cout << draft.text();
    return kExitDone;
}

int runCheck(const CommandLine& line) {
    checkUsage(line);
    if (line.has("rules")) return printRules(line);
    if (line.has("write-keys")) return writeKeys(line);
    const std::unique_ptr<FindingsWriter> writer = findingsWriter(formatOf(line));
    const Counts counts = Run(line, *writer).checkAll();
    writer->finish();  // the findings first, where both go to one place
    if (writer->wantsSummary()) std::cerr << summaryOf(counts) << "\n";
    const bool wrong = counts.errors > 0 || counts.unreadable > 0 || (line.has("strict") && counts.warnings > 0);
    return wrong ? kExitWrong : kExitDone;
}

}  // namespace

Command checkCommand() {
    return {
        "check",
        "find all mistakes in settings files",
        {{"FILE",
          "a settings file, checked as if it were pressmark.ini; a directory for all *.ini below it; - for standard "
          "input; without one, the pressmark.ini in force",
          true, true, Offer::Files}},
        {keysOption(),
         {"file", Option::Kind::FurtherFile, "FILE",
          "check FILE in the directory that the setting KR_BIN names; its references refer to pressmark.ini"},
         {"format", Option::Kind::Choice, "text|json|sarif|github",
          "how findings are written: as text, as JSON, as SARIF 2.1.0 or as commands of a GitHub workflow", 0, 0, false,
          formatNames()},
         {"ignore", Option::Kind::Choice, "RULE", "switch off RULE; may be given several times", 0, 0, false,
          ruleNames()},
         {"strict", Option::Kind::Flag, nullptr, "exit with 1 also when there are only warnings"},
         showSecretsOption(),
         {"rules", Option::Kind::Flag, nullptr, "print the rules, each with an example, and exit"},
         {"write-keys", Option::Kind::Flag, nullptr,
          "print known keys for the settings in the files, with guessed types, and exit"}},
        "pmenv check                         the pressmark.ini that programs here would load\n"
        "pmenv check conf --strict           for a pipeline: all *.ini below conf, exit 1 on any finding\n"
        "pmenv check new.ini --json          findings as JSON\n"
        "pmenv check conf --format sarif     the same for code hosts and editors\n"
        "pmenv check --file engine.ini       a further settings file, beside the pressmark.ini in force\n"
        "pmenv check --write-keys new.ini    a file of known keys to begin with\n"
        "pmenv check new.ini --ignore unset-variable",
        runCheck,
        "Each file is checked as a program would load it as pressmark.ini. A finding is printed as "
        "file:line:column: error: text [rule], which editors and pipelines understand, with the line and the text "
        "concerned underlined. The exit code is 1 when there is an error or a file cannot be read, with --strict "
        "also when there are only warnings.\n\n"
        "With --file it is a further settings file, as get --file reads it: its references refer to pressmark.ini "
        "and to environment variables, never to the file itself, and references in braces are not expanded in it.\n\n"
        "A comment '; pmenv: allow RULE' in a file allows one finding of RULE on the next line, which is then not "
        "reported. Several such comments may stand one below the other; a reason may stand behind the rule. A comment "
        "that allows nothing is a finding itself.\n\n"
        "With --format sarif the findings are a SARIF 2.1.0 log, whose columns count UTF-16 code units; with --format "
        "github they are commands that a GitHub workflow shows beside the lines of a change. --json is --format "
        "json.\n\n"
        "What is secret is shown as (hidden), as 'list' does, and so are texts that a finding would quote from it. "
        "With "
        "--json, line, column and length are those of the file, and source has a member sourceHidden beside it when "
        "something is hidden in it. --show-secrets shows all.\n\n"
        "References to environment variables are checked against the environment of this command.\n\n"
        "Known keys describe the settings that a product knows. Their file has a section for each setting, [NAME] or "
        "[section.NAME], with type (text, integer, number, boolean, path, file or choice), least, most and unit of a "
        "number, values of a choice (a list with commas), required and secret (yes or no), and help. With them the "
        "rules "
        "unknown-key, wrong-type, out-of-range, missing-file and missing-key are applied to the expanded values. They "
        "come from --keys or from the file that the setting PMENV_KEYS names, beside the file that it stands in. With "
        "--write-keys such a file is drafted from the settings in existing files and printed."};
}
