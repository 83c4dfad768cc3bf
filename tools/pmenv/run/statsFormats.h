// statsFormats.h - samples as text: for people with units and rounded, for programs exact.
//
// What is unknown is "-" in a table, null in JSON, and an empty field in CSV.
#pragma once

#include <optional>
#include <string>

#include "figures.h"
#include "output.h"
#include "terminal.h"

/// Two lines of the machine and a table of its engines, the busiest first.
std::string statsTable(const Figures& figures, const Style& style, std::optional<std::size_t> width);

/// The engines sorted by processor time, the busiest first, unknown ones last.
std::vector<EngineFigures> byCpu(std::vector<EngineFigures> engines);

Json statsJson(const Figures& figures);

/// The names of the fields, and one line for each engine; for a sample without engines one line.
std::string csvHeader();
std::string statsCsv(const Figures& figures);
