// get and list: reading settings.
#include <iostream>

#include <unistd.h>

#include "commands.h"
#include "failure.h"
#include "output.h"
#include "settingsFile.h"
#include "table.h"

namespace {

// --- get ------------------------------------------------------------------------------------------------------------

std::string placeOf(const Settings& settings, const Setting& setting) {
    return settings.file() + (setting.line > 0 ? ":" + std::to_string(setting.line) : "");
}

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

// --- list -----------------------------------------------------------------------------------------------------------

Json settingJson(const Setting& setting) {
    Json json{{"key", setting.name}, {"line", setting.line}, {"stored", *setting.stored}, {"expanded", nullptr}};
    if (setting.expanded) {
        json["expanded"] = *setting.expanded;
    } else {
        json["problem"] = setting.problem;
    }
    return json;
}

void printListJson(const Settings& settings, const std::vector<Setting>& all) {
    Json list{{"file", settings.file()}, {"settings", Json::array()}};
    for (const Setting& setting : all) list["settings"].push_back(settingJson(setting));
    printJson(list);
}

void printListTable(const Settings& settings, const std::vector<Setting>& all) {
    Table table({{"KEY"}, {"STORED"}, {"EXPANDED"}});
    for (const Setting& setting : all) {
        table.add({setting.name, *setting.stored, setting.expanded.value_or("(cannot be expanded)")});
    }
    const auto size = terminalSize();
    std::cout << settings.file() << "\n\n"
              << table.text(Style(STDOUT_FILENO), size ? std::optional(size->columns) : std::nullopt);
}

}  // namespace

int runGet(const CommandLine& line) {
    const std::string file = line.text("file");
    if (line.has("file") && file.empty()) {
        throw Failure("--file needs the name of a settings file, not an empty text", kExitUsage);
    }
    const Settings settings = loadSettings(line);
    return file.empty() ? printAsked(line, settings) : printAsked(line, FurtherSettings(settings, file));
}

int runList(const CommandLine& line) {
    const Settings settings = loadSettings(line);
    const std::vector<Setting> all = settings.all();
    if (line.has("json")) {
        printListJson(settings, all);
    } else {
        printListTable(settings, all);
    }

    int exitCode = kExitDone;
    for (const Setting& setting : all) {
        if (setting.expanded) continue;
        printError(placeOf(settings, setting) + ": " + setting.name + ": " + setting.problem);
        exitCode = kExitWrong;
    }
    return exitCode;
}
