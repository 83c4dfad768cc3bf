// list: every setting of the file, as stored and as expanded.
#include <iostream>

#include <unistd.h>

#include "commandLine.h"
#include "failure.h"
#include "output.h"
#include "settingsFile.h"
#include "table.h"

namespace {

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

int run(const CommandLine& line) {
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

}  // namespace

Command listCommand() {
    return {"list",
            "print where the settings file is, and every setting as stored and as expanded",
            {},
            {},
            "pmenv list                       a table, cut to the terminal's width\n"
            "pmenv list | grep LOG            on a pipe nothing is cut\n"
            "pmenv list --ini ./pressmark.ini the settings of that file",
            run,
            "On a terminal long values are cut to its width; on a pipe nothing is cut."};
}
