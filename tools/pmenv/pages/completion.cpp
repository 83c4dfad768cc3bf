#include "completion.h"

#include <algorithm>
#include <map>
#include <vector>

namespace {

std::string firstWord(const Command& command) {
    const std::string name = command.name;
    return name.substr(0, name.find(' '));
}

// "" for a command of one word.
std::string secondWord(const Command& command) {
    const std::string name = command.name;
    const std::size_t blank = name.find(' ');
    return blank == std::string::npos ? "" : name.substr(blank + 1);
}

void addOnce(std::vector<std::string>* words, const std::string& word) {
    if (std::find(words->begin(), words->end(), word) == words->end()) words->push_back(word);
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string arm(const std::string& pattern, const std::string& variable, const std::string& value) {
    return "        " + pattern + ") " + variable + "=" + value + " ;;\n";
}

std::string optionNames(const std::vector<Option>& options) {
    std::vector<std::string> names;
    for (const Option& option : options) names.push_back("--" + std::string(option.name));
    return joined(names);
}

// --- what is offered ------------------------------------------------------------------------------------------------

const char* nameOf(Offer offer) {
    switch (offer) {
        case Offer::Files:
            return "files";
        case Offer::Directories:
            return "directories";
        case Offer::Settings:
            return "settings";
        case Offer::PathVariables:
            return "variables";
        case Offer::Nothing:
            break;
    }
    return "nothing";
}

const char* nameOf(Option::Kind kind) {
    return kind == Option::Kind::File ? "files" : kind == Option::Kind::FurtherFile ? "further" : "nothing";
}

// The number of the argument that is typed, from 0, and the command; any number for one that may be repeated.
std::string argumentPattern(const Command& command, std::size_t number) {
    const std::string name = command.name;
    if (command.arguments[number].repeated) return "*\" " + name + "\"";
    return "\"" + std::to_string(number) + " " + name + "\"";
}

std::string optionArguments(const std::vector<Option>& options) {
    std::string arms;
    for (const Option& option : options) {
        if (option.kind == Option::Kind::Flag) continue;
        arms += arm("--" + std::string(option.name), "what", nameOf(option.kind));
    }
    return arms;
}

}  // namespace

std::string completionWords(const Grammar& grammar) {
    std::vector<std::string> words;
    for (const Command& command : grammar.commands) addOnce(&words, firstWord(command));
    return joined(words);
}

std::string completionGroups(const Grammar& grammar) {
    std::vector<std::string> groups;
    for (const Command& command : grammar.commands) {
        if (!secondWord(command).empty()) addOnce(&groups, firstWord(command));
    }
    return joined(groups);
}

std::string completionSecondWords(const Grammar& grammar) {
    std::map<std::string, std::vector<std::string>> groups;
    for (const Command& command : grammar.commands) {
        if (!secondWord(command).empty()) groups[firstWord(command)].push_back(secondWord(command));
    }
    std::string arms;
    for (const auto& [group, words] : groups) arms += arm(group, "words", "\"" + joined(words) + "\"");
    return arms;
}

std::string completionOptions(const Grammar& grammar) {
    std::string arms;
    for (const Command& command : grammar.commands) {
        if (command.options.empty()) continue;
        arms += arm("\"" + std::string(command.name) + "\"", "options", "\"" + optionNames(command.options) + "\"");
    }
    return arms;
}

std::string completionArguments(const Grammar& grammar) {
    std::string arms;
    for (const Command& command : grammar.commands) {
        for (std::size_t i = 0; i < command.arguments.size(); ++i) {
            const Offer offer = command.arguments[i].offer;
            if (offer != Offer::Nothing) arms += arm(argumentPattern(command, i), "what", nameOf(offer));
        }
    }
    return arms;
}

std::string completionOptionArguments(const Grammar& grammar) {
    std::string arms = optionArguments(grammar.globalOptions);
    for (const Command& command : grammar.commands) arms += optionArguments(command.options);
    return arms;
}

std::string completionGlobalOptions(const Grammar& grammar) { return optionNames(grammar.globalOptions); }
