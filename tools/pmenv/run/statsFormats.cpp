#include "statsFormats.h"

#include <algorithm>
#include <cstdio>

#include "isoTime.h"
#include "table.h"
#include "text.h"
#include "units.h"

namespace {

// --- numbers for programs -------------------------------------------------------------------------------------------

Json orNull(std::optional<double> figure) { return figure ? Json(*figure) : Json(); }
Json orNull(std::optional<std::uint64_t> figure) { return figure ? Json(*figure) : Json(); }

// The shortest text that reads back as the same number.
std::string exact(double number) { return Json(number).dump(); }

std::string exact(std::optional<double> figure) { return figure ? exact(*figure) : ""; }
std::string exact(std::optional<std::uint64_t> figure) { return figure ? std::to_string(*figure) : ""; }

// In quotation marks when its characters would part the line; those within are doubled.
std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string field = "\"";
    for (const char character : text) field += character == '"' ? "\"\"" : std::string(1, character);
    return field + "\"";
}

// --- what held an engine back, where that is known ------------------------------------------------------------------

std::optional<double> heldBackPercent(const EngineFigures& engine) {
    return engine.heldBack ? engine.heldBack->heldBackPercent : std::nullopt;
}
std::optional<double> throttledPercent(const EngineFigures& engine) {
    return engine.heldBack ? engine.heldBack->throttledPercent : std::nullopt;
}
std::optional<double> worstThreadPercent(const EngineFigures& engine) {
    return engine.heldBack ? std::optional(engine.heldBack->worstThreadPercent) : std::nullopt;
}

// "sender 97.0 %"
std::string worstThreadText(const EngineFigures& engine) {
    if (!engine.heldBack) return "-";
    return printable(engine.heldBack->worstThreadName) + " " + percentText(engine.heldBack->worstThreadPercent);
}

Json worstThreadJson(const EngineFigures& engine) {
    if (!engine.heldBack) return {};
    return {{"tid", engine.heldBack->worstThread},
            {"name", engine.heldBack->worstThreadName},
            {"busyPercent", engine.heldBack->worstThreadPercent}};
}

}  // namespace

std::vector<EngineFigures> byCpu(std::vector<EngineFigures> engines) {
    std::sort(engines.begin(), engines.end(), [](const EngineFigures& left, const EngineFigures& right) {
        const double leftCpu = left.cpuPercent.value_or(-1);
        const double rightCpu = right.cpuPercent.value_or(-1);
        return leftCpu != rightCpu ? leftCpu > rightCpu : left.processId < right.processId;
    });
    return engines;
}

std::string statsTable(const Figures& figures, const Style& style, std::optional<std::size_t> width) {
    Table machine({{"TIME"},
                   {"CPU", true},
                   {"PROCESSORS", true},
                   {"MEMORY", true},
                   {"AVAILABLE", true},
                   {"FREE", true},
                   {"SWAP", true},
                   {"SWAP USED", true},
                   {"ENGINES", true}});
    machine.add({isoTime(figures.time), percentText(figures.cpuPercent), std::to_string(figures.processors),
                 bytesText(figures.memoryBytes), bytesText(figures.availableBytes), bytesText(figures.freeBytes),
                 bytesText(figures.swapBytes), bytesText(figures.swapUsedBytes),
                 std::to_string(figures.engines.size())});
    std::string text = machine.text(style, width);
    if (figures.engines.empty()) return text;

    Table engines({{"PID", true},
                   {"OF ONE CPU", true},
                   {"MEMORY", true},
                   {"HELD BACK", true},
                   {"THROTTLED", true},
                   {"WORST THREAD", true},
                   {"NAME"}});
    for (const EngineFigures& engine : byCpu(figures.engines)) {
        engines.add({std::to_string(engine.processId), percentText(engine.cpuPercent), bytesText(engine.residentBytes),
                     percentText(heldBackPercent(engine)), percentText(throttledPercent(engine)),
                     worstThreadText(engine), engine.name});
    }
    return text + "\n" + engines.text(style, width);
}

Json statsJson(const Figures& figures) {
    Json json{{"time", isoTime(figures.time)},
              {"host", figures.host},
              {"processors", figures.processors},
              {"cpuPercent", orNull(figures.cpuPercent)},
              {"memoryBytes", figures.memoryBytes},
              {"freeBytes", figures.freeBytes},
              {"availableBytes", orNull(figures.availableBytes)},
              {"swapBytes", figures.swapBytes},
              {"swapUsedBytes", orNull(figures.swapUsedBytes)},
              {"engines", Json::array()}};
    for (const EngineFigures& engine : figures.engines) {
        json["engines"].push_back({{"pid", engine.processId},
                                   {"name", engine.name},
                                   {"cpuPercentOfOne", orNull(engine.cpuPercent)},
                                   {"residentBytes", orNull(engine.residentBytes)},
                                   {"heldBackPercent", orNull(heldBackPercent(engine))},
                                   {"throttledPercent", orNull(throttledPercent(engine))},
                                   {"worstThread", worstThreadJson(engine)}});
    }
    return json;
}

std::string csvHeader() {
    return "time,host,processors,cpu_percent,memory_bytes,free_bytes,available_bytes,swap_bytes,swap_used_bytes,"
           "engine_pid,engine_cpu_percent_of_one,engine_resident_bytes,engine_held_back_percent,"
           "engine_throttled_percent,engine_worst_thread,engine_worst_thread_percent\n";
}

std::string statsCsv(const Figures& figures) {
    const std::string machine = isoTime(figures.time) + "," + csvField(figures.host) + "," +
                                std::to_string(figures.processors) + "," + exact(figures.cpuPercent) + "," +
                                std::to_string(figures.memoryBytes) + "," + std::to_string(figures.freeBytes) + "," +
                                exact(figures.availableBytes) + "," + std::to_string(figures.swapBytes) + "," +
                                exact(figures.swapUsedBytes) + ",";
    if (figures.engines.empty()) return machine + ",,,,,,\n";
    std::string lines;
    for (const EngineFigures& engine : figures.engines) {
        lines += machine + std::to_string(engine.processId) + "," + exact(engine.cpuPercent) + "," +
                 exact(engine.residentBytes) + "," + exact(heldBackPercent(engine)) + "," +
                 exact(throttledPercent(engine)) + "," +
                 (engine.heldBack ? csvField(engine.heldBack->worstThreadName) : "") + "," +
                 exact(worstThreadPercent(engine)) + "\n";
    }
    return lines;
}
