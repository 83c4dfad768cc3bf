// ExecutableDirectory.h - the directory of the running program, as the environment library registered it.
//
// Threads: any thread may set and read it.
#pragma once

#include <string>

#include "KrfExport.h"

namespace n_debug::nExecutableDirectory {

/// Registers the directory; a later call replaces it.
KRF_EXPORT void gInitialize(std::string directory);

/// The registered directory, or "" before the first gInitialize.
KRF_EXPORT std::string gGet();

}  // namespace n_debug::nExecutableDirectory
