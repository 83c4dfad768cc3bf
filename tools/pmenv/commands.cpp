#include "commands.h"

#include "program.h"

// One line for each command, in the order of the help. The command itself, with its arguments, options and examples, is
// defined in its room.
#define PMENV_COMMANDS   \
    COMMAND(get)         \
    COMMAND(list)        \
    COMMAND(explain)     \
    COMMAND(check)       \
    COMMAND(diff)        \
    COMMAND(find)        \
    COMMAND(resolve)     \
    COMMAND(pathSplit)   \
    COMMAND(pathMake)    \
    COMMAND(pathShorten) \
    COMMAND(pathAbs)     \
    COMMAND(identity)    \
    COMMAND(walk)        \
    COMMAND(report)      \
    COMMAND(stats)       \
    COMMAND(judge)       \
    COMMAND(chart)       \
    COMMAND(export)      \
    COMMAND(mark)        \
    COMMAND(fleet)

#define COMMAND(name) Command name##Command();
PMENV_COMMANDS
#undef COMMAND

namespace {

Grammar makeGrammar() {
    Grammar grammar{globalOptions(), {}};
#define COMMAND(name) grammar.commands.push_back(name##Command());
    PMENV_COMMANDS
#undef COMMAND
    return grammar;
}

}  // namespace

const Grammar& pmenvGrammar() {
    static const Grammar grammar = makeGrammar();
    return grammar;
}
