// line.h - appends a line to a file.
#pragma once

#include <string>

namespace recording {

/// Writes the line and its end, all at once where the system does so. Returns 0 or an errno; a full disk, a limit on the
/// size of files or a reader that has gone is an errno as well and no signal, and leaves nothing of the line behind.
int appendLine(int descriptor, const std::string& line);

}  // namespace recording
