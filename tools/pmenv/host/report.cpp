// report: the start-up report of this host.
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Logging.h"
#include "commandLine.h"
#include "failure.h"
#include "knownKeys/knownSecrets.h"
#include "krenv.h"
#include "libraryLog.h"
#include "output.h"
#include "settingsFile.h"

namespace {

// KREInit searches by itself, so the directory that it is given must lead it to the same file.
std::string directoryFor(const CommandLine& line, const std::string& file) {
    if (!line.has("ini")) return programDirectory();
    const std::size_t slash = file.rfind('/');
    const std::string name = slash == std::string::npos ? file : file.substr(slash + 1);
    if (name != "pressmark.ini") throw Failure("report reads a file named pressmark.ini, not " + name, kExitUsage);
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : file.substr(0, slash);
}

// The records that a successful KREInit writes.
std::vector<std::string> reportLines(const std::string& directory) {
    std::vector<std::string> lines;
    nLogging::gEnable(nLogging::Level::Execution, true);
    nLogging::gSetSink([&lines](const nLogging::Record& record) {
        if (record.level == nLogging::Level::Execution) lines.push_back(record.text);
    });
    const int initialised = KREInit(directory.c_str());
    showLibraryLog();
    if (initialised == 0) throw Failure("the library cannot be initialised with the settings in " + directory);
    return lines;
}

// The text behind `label` on the line that begins with it.
std::optional<std::string> behind(const std::vector<std::string>& lines, const std::string& label) {
    for (const std::string& text : lines) {
        if (text.compare(0, label.size(), label) == 0) return text.substr(label.size());
    }
    return std::nullopt;
}

// "KR_VERSION\t12\tKR_BUILD\t345\t": the fields between the tabs.
std::vector<std::string> releaseFields(const std::vector<std::string>& lines) {
    std::vector<std::string> fields;
    std::string rest = "KR_VERSION\t" + behind(lines, "KR_VERSION\t").value_or("");
    for (std::size_t tab; (tab = rest.find('\t')) != std::string::npos; rest.erase(0, tab + 1))
        fields.push_back(rest.substr(0, tab));
    fields.resize(4);
    return fields;
}

Json orNull(const std::optional<std::string>& text) { return text && *text != "<NullChar*>" ? Json(*text) : Json(); }

Json reportJson(const std::vector<std::string>& lines) {
    const std::vector<std::string> release = releaseFields(lines);
    Json memory;
    if (const auto text = behind(lines, "Memory size: ")) memory = std::stoull(*text);
    return {{"machineName", orNull(behind(lines, "Machine Name "))},
            {"addresses", orNull(behind(lines, "Machine IP: "))},
            {"operatingSystem", orNull(behind(lines, "Operating System:  "))},
            {"cpu", orNull(behind(lines, "CPU: "))},
            {"memoryBytes", memory},
            {"bits", orNull(behind(lines, "Bits: "))},
            {"version", orNull(release[1])},
            {"build", orNull(release[3])}};
}

// A text that holds a secret, and what is shown for it.
using Secret = std::pair<std::string, std::string>;

// The release may be any text of the settings, and so may hold a secret.
std::vector<Secret> secretsOfRelease(const Settings& settings) {
    std::vector<Secret> secrets;
    for (const char* const name : {"KR_VERSION", "KR_BUILD"}) {
        const Setting hidden = settings.readHidden(name);
        if (hidden.hidesExpanded) secrets.emplace_back(*settings.read(name).expanded, *hidden.expanded);
    }
    return secrets;
}

void hide(std::string& text, const Secret& secret) {
    for (std::size_t at = 0; (at = text.find(secret.first, at)) != std::string::npos; at += secret.second.size()) {
        text.replace(at, secret.first.size(), secret.second);
    }
}

// The settings are loaded on their own first: what is wrong with them is then said as by every other command.
int runReport(const CommandLine& line) {
    const std::string file = settingsFile(line);
    const Settings settings(file, secretsFor(line, file));
    const std::string directory = directoryFor(line, settings.file());
    const std::vector<Secret> secrets = secretsOfRelease(settings);
    std::vector<std::string> lines = reportLines(directory);
    for (std::string& text : lines) {
        for (const Secret& secret : secrets) hide(text, secret);
    }
    if (line.has("json")) {
        printJson(reportJson(lines));
    } else {
        for (const std::string& text : lines) std::cout << text << "\n";
    }
    return kExitDone;
}

}  // namespace

Command reportCommand() {
    return {"report",
            "print the start-up report of this host",
            {},
            {},
            "pmenv report                  the lines that every program's log begins with\n"
            "pmenv report --json           the same values by name",
            runReport,
            "Prints the lines that the log of every program begins with."};
}
