#include "completion.h"

#include <algorithm>
#include <map>
#include <utility>
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

std::vector<std::string> groupsOf(const Grammar& grammar) {
    std::vector<std::string> groups;
    for (const Command& command : grammar.commands) {
        if (!secondWord(command).empty()) addOnce(&groups, firstWord(command));
    }
    return groups;
}

std::string arm(const std::string& pattern, const std::string& variable, const std::string& value) {
    return "        " + pattern + ") " + variable + "=" + value + " ;;\n";
}

std::string optionNames(const std::vector<Option>& options) {
    std::vector<std::string> names;
    names.reserve(options.size());
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

std::string nameOf(const Option& option) {
    switch (option.kind) {
        case Option::Kind::File:
            return "files";
        case Option::Kind::FurtherFile:
            return "further";
        case Option::Kind::Choice:
            return "\"words " + joined(option.choices) + "\"";
        default:
            return "nothing";
    }
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
        arms += arm("--" + std::string(option.name), "what", nameOf(option));
    }
    return arms;
}

// --- zsh ------------------------------------------------------------------------------------------------------------

std::string zshQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return quoted + "'";
}

// Each with its description. What the group `first` holds, or with "" the first words, a group under its name only.
std::vector<std::pair<std::string, std::string>> describedWords(const Grammar& grammar, const std::string& first) {
    std::vector<std::pair<std::string, std::string>> words;
    std::vector<std::string> known;
    for (const Command& command : grammar.commands) {
        const bool isOfGroup = !secondWord(command).empty();
        if (!first.empty() && (!isOfGroup || firstWord(command) != first)) continue;
        const std::string word = first.empty() ? firstWord(command) : secondWord(command);
        if (std::find(known.begin(), known.end(), word) != known.end()) continue;
        known.push_back(word);
        words.emplace_back(word, first.empty() && isOfGroup ? "commands about a " + word : command.summary);
    }
    return words;
}

std::string zshList(const std::vector<std::pair<std::string, std::string>>& words) {
    std::vector<std::string> described;
    described.reserve(words.size());
    for (const auto& [word, description] : words) {
        described.push_back(zshQuoted(std::string(word).append(":").append(description)));
    }
    return joined(described);
}

std::string zshOptionList(const std::vector<Option>& options) {
    std::vector<std::pair<std::string, std::string>> words;
    words.reserve(options.size());
    for (const Option& option : options) words.emplace_back("--" + std::string(option.name), option.help);
    return zshList(words);
}

// --- fish -----------------------------------------------------------------------------------------------------------

std::string fishQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) {
        if (character == '\'' || character == '\\') quoted += '\\';
        quoted += character;
    }
    return quoted + "'";
}

std::string fishOffer(const std::string& condition, const std::string& what, const std::string& description) {
    return "complete -c pmenv" + (condition.empty() ? "" : " -n " + fishQuoted(condition)) + " " + what +
           (description.empty() ? "" : " -d " + fishQuoted(description)) + "\n";
}

// What stands for an argument: files, or the words that a function prints.
std::string fishArgument(Offer offer) {
    switch (offer) {
        case Offer::Files:
            return "-F";
        case Offer::Directories:
            return "-a '(__fish_complete_directories (commandline -ct))'";
        case Offer::Settings:
            return "-a '(__pmenv_settings)'";
        case Offer::PathVariables:
            return "-a 'PATH HOME MYDOCUMENTS'";
        case Offer::Nothing:
            break;
    }
    return "";
}

std::string fishOption(const Option& option) {
    std::string name = "-l " + std::string(option.name);
    switch (option.kind) {
        case Option::Kind::Flag:
            return name;
        case Option::Kind::File:
            return name + " -r -F";
        case Option::Kind::FurtherFile:
            return name + " -x -a '(__pmenv_further_files)'";
        case Option::Kind::Choice:
            return name + " -x -a " + fishQuoted(joined(option.choices));
        default:
            return name + " -x";
    }
}

std::string fishArguments(const Command& command) {
    std::string offers;
    for (std::size_t i = 0; i < command.arguments.size(); ++i) {
        const Argument& argument = command.arguments[i];
        if (argument.offer == Offer::Nothing) continue;
        const std::string number = argument.repeated ? "" : " " + std::to_string(i);
        offers +=
            fishOffer("__pmenv_at \"" + std::string(command.name) + "\"" + number, fishArgument(argument.offer), "");
    }
    return offers;
}

std::string fishWords(const Grammar& grammar, const std::string& first) {
    std::string offers;
    for (const auto& [word, description] : describedWords(grammar, first)) {
        offers += fishOffer(first.empty() ? "__pmenv_typed" : "__pmenv_typed " + first, "-a " + word, description);
    }
    return offers;
}

}  // namespace

std::string completionWords(const Grammar& grammar) {
    std::vector<std::string> words;
    for (const Command& command : grammar.commands) addOnce(&words, firstWord(command));
    return joined(words);
}

std::string completionGroups(const Grammar& grammar) { return joined(groupsOf(grammar)); }

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

std::string completionStarters(const Grammar& grammar) {
    std::string arms;
    for (const Command& command : grammar.commands) {
        if (command.program != nullptr) arms += arm("\"" + std::string(command.name) + "\"", "starts", "yes");
    }
    return arms;
}

std::string completionGlobalOptions(const Grammar& grammar) { return optionNames(grammar.globalOptions); }

// --- zsh ------------------------------------------------------------------------------------------------------------

std::string zshWords(const Grammar& grammar) { return zshList(describedWords(grammar, "")); }

std::string zshSecondWords(const Grammar& grammar) {
    std::string arms;
    for (const std::string& group : groupsOf(grammar)) {
        arms += arm(group, "second", "(" + zshList(describedWords(grammar, group)) + ")");
    }
    return arms;
}

std::string zshOptions(const Grammar& grammar) {
    std::string arms;
    for (const Command& command : grammar.commands) {
        if (command.options.empty()) continue;
        arms += arm("\"" + std::string(command.name) + "\"", "options", "(" + zshOptionList(command.options) + ")");
    }
    return arms;
}

std::string zshGlobalOptions(const Grammar& grammar) { return zshOptionList(grammar.globalOptions); }

// --- fish -----------------------------------------------------------------------------------------------------------

std::string completionValueOptions(const Grammar& grammar) {
    std::vector<std::string> names;
    const auto add = [&](const std::vector<Option>& options) {
        for (const Option& option : options) {
            if (option.kind != Option::Kind::Flag) addOnce(&names, "--" + std::string(option.name));
        }
    };
    add(grammar.globalOptions);
    for (const Command& command : grammar.commands) add(command.options);
    return joined(names);
}

std::string fishStarters(const Grammar& grammar) {
    std::vector<std::string> names;
    for (const Command& command : grammar.commands) {
        if (command.program != nullptr) names.push_back(fishQuoted(command.name));
    }
    return joined(names);
}

std::string fishOffers(const Grammar& grammar) {
    std::string offers = fishWords(grammar, "");
    for (const std::string& group : groupsOf(grammar)) offers += fishWords(grammar, group);
    for (const Option& option : grammar.globalOptions) offers += fishOffer("", fishOption(option), option.help);
    for (const Command& command : grammar.commands) {
        const std::string condition = "__pmenv_at \"" + std::string(command.name) + "\"";
        for (const Option& option : command.options) offers += fishOffer(condition, fishOption(option), option.help);
        offers += fishArguments(command);
    }
    return offers;
}
