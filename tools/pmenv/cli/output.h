// output.h - what pmenv says: results on standard output, everything else on standard error.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

/// JSON whose members keep the order in which they were added.
using Json = nlohmann::ordered_json;

/// "pmenv: text" on standard error; "pmenv: warning: text".
void printError(const std::string& text);
void printWarning(const std::string& text);

/// The value in several lines, or with printJsonLine in one. Bytes that are no UTF-8 become U+FFFD.
void printJson(const Json& value);
void printJsonLine(const Json& value);

/// Ends the output. Throws Failure when something of it could not be written.
void finishOutput();
