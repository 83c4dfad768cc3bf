#include "grammar.h"

#include "commands.h"

namespace {

constexpr Option::Kind kFlag = Option::Kind::Flag;
constexpr Option::Kind kText = Option::Kind::Text;
constexpr Option::Kind kNumber = Option::Kind::Number;

const Argument kPathVariable{
    "VAR", "PATH, HOME, MYDOCUMENTS, '$X' (process variable X), '#X' (setting X), or directories parted by :"};

std::vector<Command> settingsCommands() {
    return {
        {"get",
         "print the expanded value of settings, one a line",
         {{"NAME", "a setting; with its section in front where it has one: section.KEY", false, true}},
         {{"file", kText, "FILE", "read them from FILE in the directory that the setting KR_BIN names"},
          {"raw", kFlag, nullptr, "print the value as it is stored, its $() and #() references not expanded"}},
         "pmenv get KR_VERSION                 prints 12\n"
         "pmenv get LOG_DIR --raw              prints $(HOME)/logs\n"
         "pmenv get KR_VERSION KR_BUILD --json prints {\"KR_VERSION\": \"12\", \"KR_BUILD\": \"345\"}\n"
         "pmenv get --file engine.ini TIMEOUT  a setting of engine.ini in the directory of KR_BIN",
         runGet},
        {"list",
         "print where the settings file is, and every setting as stored and as expanded",
         {},
         {},
         "pmenv list                       a table, cut to the terminal's width\n"
         "pmenv list | grep LOG            on a pipe nothing is cut\n"
         "pmenv list --ini ./pressmark.ini the settings of that file",
         runList},
        {"explain",
         "print where a value comes from, step by step",
         {{"NAME", "a setting; with its section in front where it has one: section.KEY", true}},
         {{"text", kText, "TEXT", "explain how this text is expanded when it is read, instead of a setting"},
          {"set", kText, "NAME=VALUE", "set a run-time value first, as a program does; may be given several times"}},
         "pmenv explain LOG_DIR                      a tree down to the sources, the final text last\n"
         "pmenv explain LOG_DIR --json               the same as data\n"
         "pmenv explain --text '$(HOME)/#(LOG_DIR)'  any text, quoted from the shell\n"
         "pmenv explain USERS --set USERS=50         as in a program that has set it",
         runExplain},
        {"check",
         "find everything that is wrong with settings files",
         {{"FILE", "a settings file, checked as if it were pressmark.ini; without one, the pressmark.ini in force",
           true, true}},
         {{"strict", kFlag, nullptr, "exit 1 also when there are only warnings"},
          {"rules", kFlag, nullptr, "print what is looked for, and exit"}},
         "pmenv check                         the pressmark.ini that programs here would load\n"
         "pmenv check conf/*.ini --strict     for a pipeline: exit 1 on any finding\n"
         "pmenv check new.ini --json          findings as data",
         runCheck},
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

std::vector<Command> fileCommands() {
    return {
        {"identity",
         "print the product's names, versions and numbers",
         {{"FILE", "the settings file that holds them"}},
         {},
         "pmenv identity product.ini          a table; what the file does not hold is marked (absent)\n"
         "pmenv identity product.ini --json   by key; null for what is absent",
         runIdentity},
        {"walk",
         "print the path of every file in a directory",
         {{"DIR", "a directory"}},
         {{"recurse", kFlag, nullptr, "also the files in its subdirectories, links to directories followed"},
          {"skip", kText, "NAME", "leave out files of exactly this name; directories of this name are entered"},
          {"null", kFlag, nullptr, "end each path with a NUL byte, for names that hold a newline"}},
         "pmenv walk /opt/pm/scripts                           the files of this directory, in no order\n"
         "pmenv walk /opt/pm/scripts --recurse --skip README   with all below it, but no README\n"
         "pmenv walk logs --recurse --null | xargs -0 ls -ld   any name survives",
         runWalk},
    };
}

std::vector<Option> statsOptions() {
    constexpr double kMost = 1e9;
    return {
        {"interval", kNumber, "SECONDS", "time between samples, 1 or more; 1 unless given", 1, 86400},
        {"count", kNumber, "N", "how many samples, 0 for no end; 1 unless given", 0, kMost, true},
        {"duration", kNumber, "SECONDS", "sample for so long, instead of --count", 1, kMost},
        {"csv", kFlag, nullptr, "one line for each sample and engine, exact numbers"},
        {"openmetrics", kFlag, nullptr, "text exposition for a metrics collector, in base units"},
        {"per-process", kFlag, nullptr, "with --openmetrics: also a series for each engine, with its pid"},
        {"output", kText, "FILE", "with --openmetrics: replace FILE in one step instead of printing"},
        {"watch", kFlag, nullptr, "redraw in place until q or Ctrl-C; on a pipe, print a table for each sample"},
        {"verdict", kFlag, nullptr, "watch for --duration (60) and say whether this load generator was the bottleneck"},
        {"cpu-limit", kNumber, "PERCENT", "of the machine's processors; 90 unless given, over 100 for never", 0, 1000},
        {"engine-limit", kNumber, "PERCENT", "of one processor, for one engine; 95 unless given", 0, 100000},
        {"sustain", kNumber, "SECONDS", "how long these two must be passed; 10 unless given", 0, kMost},
        {"memory-limit", kNumber, "PERCENT", "of the memory must stay available; 10 unless given", 0, 100},
        {"swap-limit", kNumber, "MIB", "by which swap in use may grow; 1 unless given", 0, kMost},
    };
}

std::vector<Command> hostCommands() {
    return {
        {"report",
         "print the start-up report of this host",
         {},
         {},
         "pmenv report                  the lines that every program's log begins with\n"
         "pmenv report --json           the same by name",
         runReport},
        {"stats",
         "print figures of the machine and its load engines, or judge a run",
         {},
         statsOptions(),
         "pmenv stats                                        one table; takes two seconds to measure\n"
         "pmenv stats --json --interval 5 --count 12         a minute, one object a line\n"
         "pmenv stats --watch                                a live screen\n"
         "pmenv stats --openmetrics --output /var/lib/node_exporter/pmenv.prom\n"
         "pmenv stats --duration 60 --verdict || exit 1      refuse a run on a saturated load generator (exit 3)",
         runStats},
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
    for (const auto& part : {settingsCommands(), searchCommands(), pathCommands(), fileCommands(), hostCommands()}) {
        grammar.commands.insert(grammar.commands.end(), part.begin(), part.end());
    }
    return grammar;
}

}  // namespace

const Grammar& pmenvGrammar() {
    static const Grammar grammar = makeGrammar();
    return grammar;
}
