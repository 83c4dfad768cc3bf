// fleetCommand.h - the command 'fleet', of pmenv and of pmenv-fleet.
#pragma once

#include "commandLine.h"

/// In pmenv it starts pmenv-fleet, which has the same command and does the work.
Command fleetCommand();
