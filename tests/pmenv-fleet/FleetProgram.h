// FleetProgram.h - pmenv-fleet as pmenv starts it.
#pragma once

#include <string>
#include <vector>

#include "support/Subprocess.h"

using Words = std::vector<std::string>;

/// Servers on the loopback are asked directly, whatever this machine is told about proxies.
inline ProgramResult fleet(Words words) {
    words.insert(words.begin(), {PMENV_FLEET, "fleet"});
    return runProgram(words, {{"NO_COLOR", "1"}, {"no_proxy", "*"}});
}
