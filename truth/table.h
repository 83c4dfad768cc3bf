// table.h - what came of the trials, as people read it.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

/// One trial as a line of text.
std::string lineOf(const nlohmann::json& row);

/// All of a report as Markdown: what the kernel shows, and what it does not.
std::string tableOf(const nlohmann::json& report);
