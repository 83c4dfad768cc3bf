// pmenv - the command-line tool of the environment support library.
//
// It opens no main scope, so that the library neither searches for settings nor logs by itself.
#include "commands.h"
#include "program.h"

int main(int argc, char** argv) { return runCommandLine(pmenvGrammar(), argc, argv); }
