// CommandLineArguments.h - the host program's command line, recorded when its main scope opens.
//
// Threads: recording and reading may happen on any thread.
#pragma once

#include <string>

#include "KrfExport.h"

namespace nCommandLineArguments {

/// Records the arguments, replacing earlier ones. A null `argv` or a negative `argc` records none.
KRF_EXPORT void gSet(int argc, const char* const* argv);

/// The number of recorded arguments, including the program's own name.
KRF_EXPORT int gCount();

/// Argument `index`, or "" when there is none.
/// Argument 0 is the program's path. If it was recorded without a slash (the shell found the program through PATH), as
/// an empty text or not at all, the target of /proc/self/exe is returned, so that its directory is the program's.
KRF_EXPORT std::string gGet(int index);

}  // namespace nCommandLineArguments
