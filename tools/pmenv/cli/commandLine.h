// commandLine.h - the command line as data: the commands and options that exist, and what the user typed.
//
// Arguments are taken byte for byte. Options may stand anywhere after the program's name, as --name value or
// --name=value; -- ends them. What follows it are further arguments, or the program that the command starts.
//
// This does not use a parser library, because an argument is the name of a file or a key of a settings file and may
// consist of any bytes. CLI11 2.1.2 of Debian 12 splits [a,b] into two where a command takes several arguments, and
// refuses the -x of "get NAME -- -x" in a sub-command.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// What the shell's completion offers for a word.
enum class Offer { Nothing, Files, Directories, Settings, PathVariables };

/// An option of pmenv or of one command. For File and FurtherFile the shell offers files: those of the working
/// directory, or those of the directory that the setting KR_BIN names.
struct Option {
    enum class Kind { Flag, Text, File, FurtherFile, Number, Choice };

    const char* name;  ///< without the dashes
    Kind kind;
    const char* argument;  ///< the argument's name in the help; null for a flag
    const char* help;
    double least = 0;  ///< the range of a number: `least` to `most`
    double most = 0;
    bool whole = false;                  ///< a number without a fraction
    std::vector<std::string> choices{};  ///< the values of a choice
};

/// A positional argument. Only the last one of a command may be optional or repeated.
struct Argument {
    const char* name;
    const char* help;
    bool optional = false;
    bool repeated = false;
    Offer offer = Offer::Nothing;
};

class CommandLine;

struct Command {
    const char* name;     ///< one or two words: "get", "path split"
    const char* summary;  ///< one line
    std::vector<Argument> arguments;
    std::vector<Option> options;
    const char* examples;  ///< lines of the form "command   what it does"
    int (*run)(const CommandLine&);
    const char* details = "";       ///< text for the manual page only: paragraphs with an empty line between them
    const char* program = nullptr;  ///< help for the program behind "--"; null for a command that starts none
};

/// How users call a command: "pmenv get", or the name of a program of its own, which begins with "pmenv-".
std::string callOf(const Command& command);

/// Everything that pmenv understands, or a program of its own: that is the only command of its grammar.
struct Grammar {
    std::vector<Option> globalOptions;
    std::vector<Command> commands;
};

/// The program of its own; null for pmenv.
const Command* programOf(const Grammar& grammar);

/// What the user typed, checked against the grammar.
class CommandLine {
public:
    /// Parses the arguments after the program's name. Throws Failure with kExitUsage.
    static CommandLine parse(const Grammar& grammar, const std::vector<std::string>& words);

    /// True for --help and --version, which need nothing else.
    bool asksForHelp() const { return has("help"); }
    bool asksForVersion() const { return has("version"); }

    /// The command; null only when help or the version is asked for.
    const Command* command() const { return command_; }
    /// The word before --help when it is only the first word of two-word commands, as in "pmenv path --help"; else "".
    const std::string& group() const { return group_; }
    const std::vector<std::string>& arguments() const { return arguments_; }
    /// The program that the command is to start, with its arguments: the words behind "--". Empty when none was given.
    const std::vector<std::string>& program() const { return program_; }

    bool has(const std::string& option) const { return options_.count(option) != 0; }
    /// The option's value, the last one if given several times, or `otherwise` when it was not given.
    std::string text(const std::string& option, const std::string& otherwise = {}) const;
    /// All values of an option that may be given several times, in the order given.
    const std::vector<std::string>& texts(const std::string& option) const;
    double number(const std::string& option, double otherwise) const;

private:
    void takeCommand(const Grammar& grammar, const std::vector<std::string>& words);
    void takeProgram(std::size_t argumentsBefore);
    void takeOption(const Grammar& grammar, const std::string& name, const std::optional<std::string>& value);

    const Command* command_ = nullptr;
    std::string group_;
    std::vector<std::string> arguments_;
    std::vector<std::string> program_;
    std::map<std::string, std::vector<std::string>> options_;
};
