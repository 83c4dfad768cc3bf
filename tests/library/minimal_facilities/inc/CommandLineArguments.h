#pragma once

#include <string>

namespace nCommandLineArguments {

std::string gGet(int index);

}
