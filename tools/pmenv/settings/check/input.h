// input.h - what can be given to `pmenv check`: files, directories, pipes.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// The settings files that `argument` stands for: of a directory the *.ini in it and below it, in the order of their
/// names, else the argument itself. Throws Failure for a directory without any or one that cannot be read.
std::vector<std::string> settingsFilesOf(const std::string& argument);

/// A file as the library can read it: where it is, and what it is called to the user.
using InputVisitor = std::function<void(const std::string& path, const std::string& name)>;

/// Hands over `file`, which may be a pipe, or "-" for standard input; the path of a pipe's text counts during the call
/// only. Throws Failure when it cannot be read.
void withInput(const std::string& file, const InputVisitor& visit);
