#include "manualPage.h"

#include <algorithm>
#include <sstream>
#include <string_view>

namespace {

// --- roff -----------------------------------------------------------------------------------------------------------

// `text` with nothing in it that roff would take for its own: a backslash, a dash that is typed as it stands, a quote.
std::string literal(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\')
            escaped += "\\e";
        else if (c == '-')
            escaped += "\\-";
        else if (c == '\'')
            escaped += "\\(aq";
        else
            escaped += c;
    }
    return escaped;
}

std::string bold(std::string_view text) { return "\\fB" + literal(text) + "\\fP"; }
std::string italic(std::string_view text) { return "\\fI" + literal(text) + "\\fP"; }

// A paragraph in which names of options are bold. The zero-width \& keeps a line from beginning with a dot or a quote,
// which would make it a command of roff.
std::string prose(const std::string& paragraph) {
    std::istringstream words(paragraph);
    std::string text = "\\&";
    for (std::string word; words >> word;) {
        const std::size_t end = word.compare(0, 2, "--") == 0 ? word.find_last_not_of(",.;:)") + 1 : 0;
        text += (end > 0 ? bold(word.substr(0, end)) : "") + literal(word.substr(end)) + " ";
    }
    text.back() = '\n';
    return text;
}

std::string sentence(std::string text) {
    if (text.empty()) return text;
    if (text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text + ".";
}

// --- entries --------------------------------------------------------------------------------------------------------

std::string optionCall(const Option& option) {
    const std::string name = bold("--" + std::string(option.name));
    return option.argument != nullptr ? name + " " + italic(option.argument) : name;
}

std::string argumentCall(const Argument& argument) {
    const std::string call = italic(argument.name) + (argument.repeated ? "..." : "");
    return argument.optional ? "[" + call + "]" : call;
}

std::string commandCall(const Command& command) {
    std::string call = bold("pmenv " + std::string(command.name));
    if (!command.options.empty()) call += " [" + italic("OPTION") + "]...";
    for (const Argument& argument : command.arguments) call += " " + argumentCall(argument);
    if (command.program != nullptr)
        call += " [" + bold("--") + " " + italic("COMMAND") + " [" + italic("ARGUMENT") + "]...]";
    return call;
}

std::string argumentsText(const Command& command) {
    const auto line = [](const char* name, const char* help) {
        return ".br\n" + italic(name) + ": " + prose(help).substr(2);
    };
    std::string text;
    for (const Argument& argument : command.arguments) text += line(argument.name, argument.help);
    if (command.program != nullptr) text += line("COMMAND", command.program);
    return text;
}

std::string detailsText(const std::string& details) {
    std::string text;
    for (std::size_t from = 0; from < details.size();) {
        const std::size_t end = std::min(details.find("\n\n", from), details.size());
        text += (from > 0 ? ".IP\n" : "") + prose(details.substr(from, end - from));
        from = end + 2;
    }
    return text;
}

std::string optionEntries(const std::vector<Option>& options) {
    std::string text;
    for (const Option& option : options) text += ".TP\n" + optionCall(option) + "\n" + prose(sentence(option.help));
    return text;
}

}  // namespace

std::string manualCommands(const Grammar& grammar) {
    std::string text;
    for (const Command& command : grammar.commands) {
        text += ".TP\n" + commandCall(command) + "\n" + prose(sentence(command.summary)) + argumentsText(command);
        if (*command.details != '\0') text += ".IP\n" + detailsText(command.details);
    }
    return text;
}

std::string manualOptions(const Grammar& grammar) {
    std::string text = ".SS Of all commands\n" + optionEntries(grammar.globalOptions);
    for (const Command& command : grammar.commands) {
        if (command.options.empty()) continue;
        text += ".SS Of " + literal(command.name) + "\n" + optionEntries(command.options);
    }
    return text;
}

std::string manualExamples(const Grammar& grammar) {
    std::string text;
    for (const Command& command : grammar.commands) text += literal(command.examples) + "\n";
    return text;
}
