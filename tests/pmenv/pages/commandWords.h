// commandWords.h - a command as it is typed.
#pragma once

#include <iterator>
#include <sstream>

#include "commandLine.h"
#include "pmenv/PmenvTest.h"

inline Words wordsOf(const Command& command) {
    std::istringstream name(command.name);
    return {std::istream_iterator<std::string>(name), std::istream_iterator<std::string>()};
}
