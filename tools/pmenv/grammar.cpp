#include "grammar.h"

#include "commands.h"

namespace {

constexpr Option::Kind kFlag = Option::Kind::Flag;
constexpr Option::Kind kText = Option::Kind::Text;

const Argument kPathVariable{
    "VAR", "PATH, HOME, MYDOCUMENTS, '$X' (process variable X), '#X' (setting X), or directories parted by :"};

std::vector<Command> settingsCommands() {
    return {
        {"get",
         "print the expanded value of settings, one a line",
         {{"NAME", "a setting; with its section in front where it has one: section.KEY", false, true}},
         {{"raw", kFlag, nullptr, "print the value as it is stored, its $() and #() references not expanded"}},
         "pmenv get KR_VERSION                 prints 12\n"
         "pmenv get LOG_DIR --raw              prints $(HOME)/logs\n"
         "pmenv get KR_VERSION KR_BUILD --json prints {\"KR_VERSION\": \"12\", \"KR_BUILD\": \"345\"}",
         runGet},
        {"list",
         "print where the settings file is, and every setting as stored and as expanded",
         {},
         {},
         "pmenv list                       a table, cut to the terminal's width\n"
         "pmenv list | grep LOG            on a pipe nothing is cut\n"
         "pmenv list --ini ./pressmark.ini the settings of that file",
         runList},
    };
}

std::vector<Command> searchCommands() {
    return {
        {"find",
         "print the first existing FILE in the directories that the variables stand for",
         {{"FILE", "the file's name; of a path, only its last component counts"},
          {kPathVariable.name, kPathVariable.help, false, true}},
         {},
         "pmenv find engine.cfg . '$KR_BIN' '#INCLUDE_PATH' HOME\n"
         "pmenv find sh PATH        prints /usr/bin/sh",
         runFind},
        {"resolve",
         "print what a path variable stands for",
         {kPathVariable},
         {},
         "pmenv resolve '$KR_BIN'            prints the process variable KR_BIN\n"
         "pmenv resolve '#INCLUDE_PATH'      prints the setting, expanded\n"
         "pmenv resolve PATH --json          tells what is wrong with each directory",
         runResolve},
    };
}

std::vector<Command> pathCommands() {
    return {
        {"path split",
         "print the directory, the name and the extension of a path",
         {{"PATH", "a path; an existing directory is all directory"}},
         {},
         "pmenv path split /usr/lib/x.tar.gz   directory /usr/lib, name x.tar, extension gz",
         runPathSplit},
        {"path make",
         "compose a path of its parts",
         {{"DIR", "the directory; may be ''"}, {"NAME", "the name"}, {"EXT", "the extension, without a dot", true}},
         {},
         "pmenv path make /usr/lib x.tar gz   prints /usr/lib/x.tar.gz",
         runPathMake},
        {"path shorten",
         "shorten a path for display by cutting its middle",
         {{"PATH", "a path"}, {"WIDTH", "characters; a path of as many or more is shortened to exactly as many"}},
         {},
         "pmenv path shorten /home/user/projects/reports/weekly.md 30   prints /home/user/projec...\\weekly.md",
         runPathShorten},
        {"path abs",
         "make a path absolute; a bare name is searched in . and in the setting INCLUDE_PATH",
         {{"PATH", "a path whose directory exists, or the name of a file"}},
         {},
         "pmenv path abs ../lib/x.so   prints /usr/lib/x.so when called in /usr/bin\n"
         "pmenv path abs stdio.h       prints where stdio.h is",
         runPathAbs},
    };
}

Grammar makeGrammar() {
    Grammar grammar;
    grammar.globalOptions = {
        {"ini", kText, "FILE|DIR", "read the settings from FILE or from DIR/pressmark.ini and nowhere else"},
        {"json", kFlag, nullptr, "print the answer as JSON"},
        {"help", kFlag, nullptr, "print help and exit; also -h"},
        {"version", kFlag, nullptr, "print the version and exit"},
    };
    for (const auto& part : {settingsCommands(), searchCommands(), pathCommands()}) {
        grammar.commands.insert(grammar.commands.end(), part.begin(), part.end());
    }
    return grammar;
}

}  // namespace

const Grammar& pmenvGrammar() {
    static const Grammar grammar = makeGrammar();
    return grammar;
}
