// commands.h - all commands of pmenv with their options.
#pragma once

#include "commandLine.h"

const Grammar& pmenvGrammar();
