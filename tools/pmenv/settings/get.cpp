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

// With --default, what is said of a setting that does not exist.
std::vector<Setting> readAsked(const CommandLine& line, const Settings& settings) {
    std::vector<Setting> asked;
    for (const std::string& name : line.arguments()) {
        asked.push_back(settings.read(name));
        Setting& setting = asked.back();
        if (!setting.stored && line.has("default")) setting.stored = setting.expanded = line.text("default");
    }
    return asked;
}

std::string problemOf(const Settings& settings, const Setting& setting) {
    return placeOf(settings, setting) + ": " + setting.name + ": " + setting.problem;
}

int runGet(const CommandLine& line) {
    const AskedSettings settings(line);
    const std::vector<Setting> asked = readAsked(line, *settings);
    const auto form = line.has("raw") ? &Setting::stored : &Setting::expanded;
    int exitCode = kExitDone;
    if (line.has("json")) printValuesJson(asked, form);
    for (const Setting& setting : asked) {
        if (!(setting.*form)) {
            printError(problemOf(*settings, setting));
            exitCode = kExitWrong;
        } else if (!line.has("json")) {
            std::cout << *(setting.*form) << "\n";
        }
    }
    return exitCode;
}

}  // namespace

Command getCommand() {
    return {
        "get",
        "print the expanded value of settings, one per line",
        {{"NAME", "a setting; with its section in front where it has one: section.KEY", false, true, Offer::Settings}},
        {furtherFileOption(),
         {"default", Option::Kind::Text, "TEXT", "print TEXT for a setting that does not exist"},
         {"raw", Option::Kind::Flag, nullptr,
          "print the value as it is stored, its $() and #() references not expanded"}},
        "pmenv get KR_VERSION                   prints 12\n"
        "pmenv get LOG_DIR --raw                prints $(HOME)/logs\n"
        "pmenv get PROXY --default none         prints none if there is no PROXY\n"
        "pmenv get KR_VERSION KR_BUILD --json   prints {\"KR_VERSION\": \"12\", \"KR_BUILD\": \"345\"}\n"
        "pmenv get --file engine.ini TIMEOUT    a setting of engine.ini in the directory of KR_BIN",
        runGet,
        "An unknown name is an error that suggests the nearest ones, unless --default gives a text for it. A "
        "setting whose references cannot be expanded is an error in any case.\n\n"
        "With --file the settings come from FILE in the directory that the setting KR_BIN (of "
        "pressmark.ini, not of the process) names. All four forms of references stay in its values when "
        "the file is loaded; $() and #() are expanded when a value is read, with environment variables and "
        "settings of pressmark.ini, never with settings of FILE itself."};
}
