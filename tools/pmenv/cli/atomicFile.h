// atomicFile.h - replacing a file in one step.
#pragma once

#include <string>

/// Writes `content` to a temporary file beside `path` and renames it to `path`, so that a reader sees the old file or
/// the whole new one. Throws Failure; then `path` is as it was and the temporary file is gone.
void replaceFile(const std::string& path, const std::string& content);
