#include "statsFormats.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>

#include "exposition.h"
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
    return engine.heldBack ? std::optional(engine.heldBack->heldBackPercent) : std::nullopt;
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

// --- exposition -----------------------------------------------------------------------------------------------------

// One metric: its help, its type and its series. A metric without a known value does not appear.
class Gauge {
public:
    Gauge(const char* name, const char* help) : name_(name), heading_(metricHeading(name, "gauge", help)) {}

    Gauge& add(const std::string& labels, const std::string& value) {
        if (!value.empty()) series_ += name_ + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
        return *this;
    }

    std::string text() const { return series_.empty() ? "" : heading_ + series_; }

private:
    std::string name_;
    std::string heading_;
    std::string series_;
};

std::optional<double> ratio(std::optional<double> percent) {
    if (!percent) return std::nullopt;
    return *percent / 100;
}

std::string machineGauges(const Figures& figures) {
    return Gauge("pmenv_machine_processors", "Processors that are online.")
               .add("", std::to_string(figures.processors))
               .text() +
           Gauge("pmenv_machine_cpu_ratio", "Busy share of all processors, 0 to 1.")
               .add("", exact(ratio(figures.cpuPercent)))
               .text() +
           Gauge("pmenv_machine_memory_bytes", "Physical memory.").add("", std::to_string(figures.memoryBytes)).text() +
           Gauge("pmenv_machine_memory_free_bytes", "Memory that nothing uses, caches not counted.")
               .add("", std::to_string(figures.freeBytes))
               .text() +
           Gauge("pmenv_machine_memory_available_bytes", "Memory that programs can still get.")
               .add("", exact(figures.availableBytes))
               .text() +
           Gauge("pmenv_machine_swap_bytes", "Swap space.").add("", std::to_string(figures.swapBytes)).text() +
           Gauge("pmenv_machine_swap_used_bytes", "Swap space in use.").add("", exact(figures.swapUsedBytes)).text() +
           Gauge("pmenv_host_info", "The machine's name; always 1.").add(label("host", figures.host), "1").text();
}

// The engines of one name: how many, and the sum and the largest of what is known.
template <class Number>
struct SumAndLargest {
    std::optional<Number> sum;
    std::optional<Number> largest;

    void add(std::optional<Number> figure) {
        if (!figure) return;
        sum = sum.value_or(0) + *figure;
        largest = std::max(largest.value_or(0), *figure);
    }
};

struct EngineGroup {
    std::size_t count = 0;
    SumAndLargest<double> cpu;
    SumAndLargest<std::uint64_t> memory;
    SumAndLargest<double> heldBack;
    SumAndLargest<double> throttled;
    SumAndLargest<double> thread;
};

std::map<std::string, EngineGroup> groupsByName(const std::vector<EngineFigures>& engines) {
    std::map<std::string, EngineGroup> groups;
    for (const EngineFigures& engine : engines) {
        EngineGroup& group = groups[engine.name];
        ++group.count;
        group.cpu.add(ratio(engine.cpuPercent));
        group.memory.add(engine.residentBytes);
        group.heldBack.add(ratio(heldBackPercent(engine)));
        group.throttled.add(ratio(throttledPercent(engine)));
        group.thread.add(ratio(worstThreadPercent(engine)));
    }
    return groups;
}

std::string engineGauges(const std::vector<EngineFigures>& engines) {
    Gauge count("pmenv_engines", "Load engines that run.");
    Gauge cpu("pmenv_engines_cpu_ratio", "Processor time of all engines of a name; 1 is one processor.");
    Gauge cpuMax("pmenv_engines_cpu_max_ratio", "Processor time of the busiest engine of a name; 1 is one processor.");
    Gauge memory("pmenv_engines_memory_bytes", "Resident memory of all engines of a name.");
    Gauge memoryMax("pmenv_engines_memory_max_bytes", "Resident memory of the largest engine of a name.");
    Gauge heldBack("pmenv_engines_held_back_max_ratio",
                   "Share of the time in which the worst engine of a name was held back.");
    Gauge throttled("pmenv_engines_throttled_max_ratio",
                    "Processor time that a quota denied the worst engine of a name; 1 is one processor.");
    Gauge thread("pmenv_engines_thread_max_ratio", "Busy share of the busiest thread of a name at its busiest moment.");
    for (const auto& [name, group] : groupsByName(engines)) {
        const std::string labels = label("name", name);
        count.add(labels, std::to_string(group.count));
        cpu.add(labels, exact(group.cpu.sum));
        cpuMax.add(labels, exact(group.cpu.largest));
        memory.add(labels, exact(group.memory.sum));
        memoryMax.add(labels, exact(group.memory.largest));
        heldBack.add(labels, exact(group.heldBack.largest));
        throttled.add(labels, exact(group.throttled.largest));
        thread.add(labels, exact(group.thread.largest));
    }
    if (engines.empty()) count.add(label("name", kEngineName), "0");
    return count.text() + cpu.text() + cpuMax.text() + memory.text() + memoryMax.text() + heldBack.text() +
           throttled.text() + thread.text();
}

std::string processGauges(const std::vector<EngineFigures>& engines) {
    Gauge cpu("pmenv_engine_cpu_ratio", "Processor time of one engine; 1 is one processor.");
    Gauge memory("pmenv_engine_memory_bytes", "Resident memory of one engine.");
    Gauge heldBack("pmenv_engine_held_back_ratio", "Share of the time in which one engine was held back.");
    Gauge throttled("pmenv_engine_throttled_ratio",
                    "Processor time that a quota denied one engine; 1 is one processor.");
    Gauge thread("pmenv_engine_thread_ratio", "Busy share of one engine's busiest thread at its busiest moment.");
    for (const EngineFigures& engine : engines) {
        const std::string labels = label("name", engine.name) + "," + label("pid", std::to_string(engine.processId));
        cpu.add(labels, exact(ratio(engine.cpuPercent)));
        memory.add(labels, exact(engine.residentBytes));
        heldBack.add(labels, exact(ratio(heldBackPercent(engine))));
        throttled.add(labels, exact(ratio(throttledPercent(engine))));
        thread.add(labels, exact(ratio(worstThreadPercent(engine))));
    }
    return cpu.text() + memory.text() + heldBack.text() + throttled.text() + thread.text();
}

}  // namespace

std::string isoTime(std::chrono::system_clock::time_point time) {
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(milliseconds % 1000));
    return text;
}

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

std::string statsOpenMetrics(const Figures& figures, bool perProcess) {
    return machineGauges(figures) + engineGauges(figures.engines) + (perProcess ? processGauges(figures.engines) : "") +
           "# EOF\n";
}
