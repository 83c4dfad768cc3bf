// output.h - pmenv's output: results on standard output, everything else on standard error.
#pragma once

#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

/// JSON whose members keep the order in which they were added.
using Json = nlohmann::ordered_json;

/// From now on standard output is gathered and written in large pieces, on a terminal at once, and finishOutput knows
/// why a piece could not be written.
void gatherOutput();

/// What stands before messages from now on, in place of "pmenv". The text stays as it is while the program runs.
void nameProgram(const char* name);

/// Print "pmenv: text" and "pmenv: warning: text" to standard error.
void printError(const std::string& text);
void printWarning(const std::string& text);

/// printJson prints the value on several lines, printJsonLine on one. Bytes that are not UTF-8 become U+FFFD.
void printJson(const Json& value);
void printJson(const Json& value, std::ostream& out);
void printJsonLine(const Json& value);

/// Flushes the output. Throws Failure when some of it could not be written.
void finishOutput();
