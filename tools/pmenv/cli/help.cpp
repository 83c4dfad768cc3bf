#include "help.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

std::string section(const char* title, const Rows& rows) {
    std::size_t width = 0;
    for (const auto& row : rows) width = std::max(width, row.first.size());
    std::string text = std::string("\n") + title + ":\n";
    for (const auto& [left, right] : rows) {
        text.append("  ").append(left).append(width - left.size() + 3, ' ').append(right).append("\n");
    }
    return text;
}

std::string optionName(const Option& option) {
    return "--" + std::string(option.name) + (option.argument != nullptr ? " " + std::string(option.argument) : "");
}

std::string argumentText(const Argument& argument) {
    const std::string name = std::string(argument.name) + (argument.repeated ? "..." : "");
    return argument.optional ? "[" + name + "]" : name;
}

Rows optionRows(const std::vector<Option>& options) {
    Rows rows;
    for (const Option& option : options) rows.emplace_back(optionName(option), option.help);
    return rows;
}

std::string usage(const Command& command) {
    std::string text = "Usage: " + callOf(command);
    for (const Argument& argument : command.arguments) text += " " + argumentText(argument);
    text += " [OPTION]...";
    if (command.program != nullptr) text += " [-- COMMAND [ARGUMENT]...]";
    return text + "\n";
}

std::string examples(const char* lines) {
    std::string text = "\nExamples:\n";
    for (std::string_view rest = lines; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        text += "  " + std::string(rest.substr(0, end)) + "\n";
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return text;
}

constexpr char kOverviewExamples[] =
    "pmenv list                        where the settings are and what they say\n"
    "pmenv get KR_VERSION              one setting, as a program would read it\n"
    "pmenv --ini /opt/pm get KR_BIN    the same from another pressmark.ini\n"
    "pmenv find engine.cfg '$KR_BIN'   where a file is found, or every place where it is not\n"
    "pmenv stats --watch               the machine and its load engines, live";

}  // namespace

std::string overviewHelp(const Grammar& grammar, const std::string& group) {
    Rows commands;
    std::string groupExamples;
    for (const Command& command : grammar.commands) {
        if (!group.empty() && std::string_view(command.name).substr(0, group.size() + 1) != group + " ") continue;
        commands.emplace_back(command.name, command.summary);
        groupExamples += std::string(command.examples) + "\n";
    }
    const std::string of = group.empty() ? "" : group + " ";
    return "pmenv - the settings, paths and figures of a Pressmark host\n\nUsage: pmenv " + of +
           "COMMAND [ARGUMENT]... [OPTION]...\n" + section("Commands", commands) +
           section("Options of all commands", optionRows(grammar.globalOptions)) +
           examples(group.empty() ? kOverviewExamples : groupExamples.c_str()) +
           "\n'pmenv COMMAND --help' tells more about a command, 'man pmenv' about all.\n"
           "Exit codes: 0 done; 1 the thing asked for is absent or wrong, diff: something differs;\n"
           "2 wrong usage; 3 judge, fleet: the run was spoiled by its load generator;\n"
           "4 judge, fleet, diff: no verdict or comparison was possible.\n";
}

std::string commandHelp(const Grammar& grammar, const Command& command) {
    std::string text = usage(command) + "\n" + command.summary + "\n";
    Rows rows;
    for (const Argument& argument : command.arguments) rows.emplace_back(argument.name, argument.help);
    if (command.program != nullptr) rows.emplace_back("COMMAND", command.program);
    if (!rows.empty()) text += section("Arguments", rows);
    Rows options = optionRows(command.options);
    const Rows ofAll = optionRows(grammar.globalOptions);
    const bool isProgram = programOf(grammar) != nullptr;
    if (isProgram) options.insert(options.end(), ofAll.begin(), ofAll.end());
    if (!options.empty()) text += section("Options", options);
    if (!isProgram) text += section("Options of all commands", ofAll);
    return text + examples(command.examples);
}
