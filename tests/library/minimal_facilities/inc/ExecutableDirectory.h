#pragma once

#include <string>

namespace n_debug::nExecutableDirectory {

void gInitialize(std::string directory);
std::string gGet();

}  // namespace n_debug::nExecutableDirectory
