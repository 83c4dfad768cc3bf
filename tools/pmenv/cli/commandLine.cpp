#include "commandLine.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "failure.h"
#include "nearest.h"

namespace {

[[noreturn]] void failUsage(const std::string& what, const Command* command) {
    const std::string call = command != nullptr ? callOf(*command) : "pmenv";
    throw Failure(what + (what.back() == '?' ? " See" : "; see") + " '" + call + " --help'", kExitUsage);
}

// --- words ----------------------------------------------------------------------------------------------------------

// The typed words, separated into options and the rest before the command is known.
struct Words {
    struct Given {
        std::string name;
        std::optional<std::string> value;
    };
    std::vector<Given> options;
    std::vector<std::string> rest;
    std::optional<std::size_t> beforeDashes;  // how many of `rest` stand in front of "--"
};

const Option* findOption(const std::vector<Option>& options, const std::string& name) {
    for (const Option& option : options) {
        if (name == option.name) return &option;
    }
    return nullptr;
}

// An option of the same name takes a value in all commands or in none, so that options can be read before the command
// is known.
const Option* findAnywhere(const Grammar& grammar, const std::string& name) {
    if (const Option* const found = findOption(grammar.globalOptions, name)) return found;
    for (const Command& command : grammar.commands) {
        if (const Option* const found = findOption(command.options, name)) return found;
    }
    return nullptr;
}

Words::Given splitOption(const std::string& word) {
    if (word == "-h") return {"help", std::nullopt};
    if (word.compare(0, 2, "--") != 0) return {word, std::nullopt};
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) return {word.substr(2), std::nullopt};
    return {word.substr(2, equals - 2), word.substr(equals + 1)};
}

Words separate(const Grammar& grammar, const std::vector<std::string>& typed) {
    Words words;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        if (typed[i] == "--") {
            words.beforeDashes = words.rest.size();
            words.rest.insert(words.rest.end(), typed.begin() + static_cast<std::ptrdiff_t>(i) + 1, typed.end());
            break;
        }
        if (typed[i].size() < 2 || typed[i][0] != '-') {
            words.rest.push_back(typed[i]);
            continue;
        }
        Words::Given given = splitOption(typed[i]);
        const Option* const option = findAnywhere(grammar, given.name);
        const bool takesNext = option != nullptr && option->kind != Option::Kind::Flag && !given.value;
        if (takesNext && i + 1 < typed.size()) given.value = typed[++i];
        words.options.push_back(std::move(given));
    }
    return words;
}

// --- the command ----------------------------------------------------------------------------------------------------

const Command* findCommand(const Grammar& grammar, const std::string& name) {
    for (const Command& command : grammar.commands) {
        if (name == command.name) return &command;
    }
    return nullptr;
}

bool isGroup(const Grammar& grammar, const std::string& word) {
    for (const Command& command : grammar.commands) {
        if (std::string_view(command.name).substr(0, word.size() + 1) == word + " ") return true;
    }
    return false;
}

[[noreturn]] void failUnknownCommand(const Grammar& grammar, const std::string& name) {
    std::vector<std::string> names;
    for (const Command& command : grammar.commands) {
        const std::string full = command.name;
        names.push_back(full);
        names.push_back(full.substr(0, full.find(' ')));
    }
    failUsage("there is no command '" + name + "'" + didYouMean(nearestNames(name, names)), nullptr);
}

// --- options --------------------------------------------------------------------------------------------------------

[[noreturn]] void failUnknownOption(const Grammar& grammar, const Command* command, const std::string& name) {
    if (name.compare(0, 1, "-") == 0) failUsage("there is no option '" + name + "'", command);
    std::vector<std::string> names;
    for (const Option& option : grammar.globalOptions) names.push_back(option.name);
    if (command != nullptr) {
        for (const Option& option : command->options) names.push_back(option.name);
    }
    for (std::string& known : names) known.insert(0, "--");
    const std::string of = command != nullptr ? " of '" + std::string(command->name) + "'" : "";
    failUsage("there is no option '--" + name + "'" + of + didYouMean(nearestNames("--" + name, names)), command);
}

std::string shortest(double number) {
    std::string text = std::to_string(number);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

std::optional<double> parseNumber(const std::string& text) {
    if (text.empty() || std::string_view("0123456789.").find(text[0]) == std::string_view::npos) return std::nullopt;
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || !std::isfinite(number)) return std::nullopt;
    return number;
}

void checkNumber(const Option& option, const std::string& text, const Command* command) {
    const std::optional<double> number = parseNumber(text);
    const bool fits = number && *number >= option.least && *number <= option.most &&
                      (!option.whole || *number == std::floor(*number));
    if (fits) return;
    failUsage("--" + std::string(option.name) + " needs a " + (option.whole ? "whole number" : "number") + " from " +
                  shortest(option.least) + " to " + shortest(option.most) + ", not '" + text + "'",
              command);
}

void checkChoice(const Option& option, const std::string& text, const Command* command) {
    const std::vector<std::string>& choices = option.choices;
    if (std::find(choices.begin(), choices.end(), text) != choices.end()) return;
    failUsage("--" + std::string(option.name) + " takes no '" + text + "'" + didYouMean(nearestNames(text, choices)),
              command);
}

void checkValue(const Option& option, const std::optional<std::string>& value, const Command* command) {
    const std::string name = "--" + std::string(option.name);
    if (option.kind == Option::Kind::Flag) {
        if (value) failUsage(name + " takes no value", command);
        return;
    }
    if (!value) failUsage(name + " needs a value: " + name + " " + option.argument, command);
    if (option.kind == Option::Kind::Number) checkNumber(option, *value, command);
    if (option.kind == Option::Kind::Choice) checkChoice(option, *value, command);
}

// --- arguments ------------------------------------------------------------------------------------------------------

void checkArguments(const Command& command, const std::vector<std::string>& given) {
    if (given.size() < command.arguments.size() && !command.arguments[given.size()].optional) {
        failUsage("'" + std::string(command.name) + "' needs " + command.arguments[given.size()].name, &command);
    }
    const bool open = !command.arguments.empty() && command.arguments.back().repeated;
    if (given.size() > command.arguments.size() && !open) {
        failUsage(
            "'" + std::string(command.name) + "' takes no further argument '" + given[command.arguments.size()] + "'",
            &command);
    }
}

}  // namespace

std::string callOf(const Command& command) {
    const std::string name = command.name;
    return name.compare(0, 6, "pmenv-") == 0 ? name : "pmenv " + name;
}

const Command* programOf(const Grammar& grammar) {
    const std::vector<Command>& commands = grammar.commands;
    return commands.size() == 1 && callOf(commands[0]) == commands[0].name ? &commands[0] : nullptr;
}

CommandLine CommandLine::parse(const Grammar& grammar, const std::vector<std::string>& words) {
    CommandLine line;
    Words typed = separate(grammar, words);
    if (const Command* const program = programOf(grammar)) typed.rest.insert(typed.rest.begin(), program->name);
    line.takeCommand(grammar, typed.rest);
    for (const Words::Given& option : typed.options) line.takeOption(grammar, option.name, option.value);
    if (line.asksForHelp() || line.asksForVersion()) return line;

    if (line.command_ == nullptr && line.group_.empty()) failUsage("a command is needed", nullptr);
    if (line.command_ == nullptr) failUsage("'" + line.group_ + "' needs a command", nullptr);
    if (line.command_->program != nullptr && typed.beforeDashes) {
        const std::size_t commandWords = typed.rest.size() - line.arguments_.size();
        line.takeProgram(std::max(*typed.beforeDashes, commandWords) - commandWords);
    }
    checkArguments(*line.command_, line.arguments_);
    return line;
}

// The command is the first word, or the first two where several commands share the first.
void CommandLine::takeCommand(const Grammar& grammar, const std::vector<std::string>& words) {
    if (words.empty()) return;
    const bool ofGroup = isGroup(grammar, words[0]);
    if (ofGroup && words.size() == 1) {
        group_ = words[0];
        return;
    }
    const std::string name = ofGroup ? words[0] + " " + words[1] : words[0];
    command_ = findCommand(grammar, name);
    if (command_ == nullptr) failUnknownCommand(grammar, name);
    arguments_.assign(words.begin() + (ofGroup ? 2 : 1), words.end());
}

void CommandLine::takeProgram(std::size_t argumentsBefore) {
    const auto first = arguments_.begin() + static_cast<std::ptrdiff_t>(argumentsBefore);
    program_.assign(first, arguments_.end());
    arguments_.erase(first, arguments_.end());
    if (program_.empty()) failUsage("a command is needed behind --", command_);
}

void CommandLine::takeOption(const Grammar& grammar, const std::string& name, const std::optional<std::string>& value) {
    const Option* option = findOption(grammar.globalOptions, name);
    if (option == nullptr && command_ != nullptr) option = findOption(command_->options, name);
    if (option == nullptr) failUnknownOption(grammar, command_, name);
    checkValue(*option, value, command_);
    options_[name].push_back(value.value_or(""));
}

std::string CommandLine::text(const std::string& option, const std::string& otherwise) const {
    const auto found = options_.find(option);
    return found != options_.end() ? found->second.back() : otherwise;
}

const std::vector<std::string>& CommandLine::texts(const std::string& option) const {
    static const std::vector<std::string> none;
    const auto found = options_.find(option);
    return found != options_.end() ? found->second : none;
}

double CommandLine::number(const std::string& option, double otherwise) const {
    const auto found = options_.find(option);
    return found != options_.end() ? parseNumber(found->second.back()).value_or(otherwise) : otherwise;
}
