// get: the values of settings, one a line.
#include <iostream>

#include "commandLine.h"
#include "failure.h"
#include "output.h"
#include "settingsFile.h"

namespace {

void printValuesJson(const std::vector<Setting>& asked, std::optional<std::string> Setting::*form) {
    Json values = Json::object();
    for (const Setting& setting : asked) values[setting.name] = setting.*form ? Json(*(setting.*form)) : Json();
    printJson(values);
}

int printAsked(const CommandLine& line, const Settings& settings) {
    const auto form = line.has("raw") ? &Setting::stored : &Setting::expanded;

    std::vector<Setting> asked;
    for (const std::string& name : line.arguments()) asked.push_back(settings.read(name));

    int exitCode = kExitDone;
    if (line.has("json")) printValuesJson(asked, form);
    for (const Setting& setting : asked) {
        if (!(setting.*form)) {
            printError(placeOf(settings, setting) + ": " + setting.name + ": " + setting.problem);
            exitCode = kExitWrong;
        } else if (!line.has("json")) {
            std::cout << *(setting.*form) << "\n";
        }
    }
    return exitCode;
}

int run(const CommandLine& line) {
    const std::string file = line.text("file");
    if (line.has("file") && file.empty()) {
        throw Failure("--file needs the name of a settings file, not an empty text", kExitUsage);
    }
    const Settings settings = loadSettings(line);
    return file.empty() ? printAsked(line, settings) : printAsked(line, FurtherSettings(settings, file));
}

}  // namespace

Command getCommand() {
    return {
        "get",
        "print the expanded value of settings, one a line",
        {{"NAME", "a setting; with its section in front where it has one: section.KEY", false, true, Offer::Settings}},
        {{"file", Option::Kind::FurtherFile, "FILE",
          "read them from FILE in the directory that the setting KR_BIN names"},
         {"raw", Option::Kind::Flag, nullptr,
          "print the value as it is stored, its $() and #() references not expanded"}},
        "pmenv get KR_VERSION                 prints 12\n"
        "pmenv get LOG_DIR --raw              prints $(HOME)/logs\n"
        "pmenv get KR_VERSION KR_BUILD --json prints {\"KR_VERSION\": \"12\", \"KR_BUILD\": \"345\"}\n"
        "pmenv get --file engine.ini TIMEOUT  a setting of engine.ini in the directory of KR_BIN",
        run,
        "An unknown name is an error that suggests the nearest ones.\n\n"
        "With --file the settings come from FILE in the directory that the setting KR_BIN (of "
        "pressmark.ini, not of the process) names. All four forms of references stay in its values when "
        "the file is loaded; $() and #() are expanded when a value is read, against the process and "
        "pressmark.ini, never against FILE itself."};
}
