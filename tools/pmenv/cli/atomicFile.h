// atomicFile.h - replacing a file in one step.
#pragma once

#include <string>

/// Writes `content` to a temporary file beside `path` and renames it to `path`, so that a reader sees either the old
/// file or the whole new one. An existing file keeps its mode; a link stays, and the file behind it is replaced. Throws
/// Failure on an error; `path` is then unchanged and the temporary file removed.
void replaceFile(const std::string& path, const std::string& content);
