// Measures reading and judging a recording, and drawing it, against reading the same file with parsers of JSON in general.
// These do less: they take one figure of each engine from each interval and judge nothing.
#include <cstdint>
#include <fstream>
#include <random>
#include <string>

#include <nlohmann/json.hpp>

#include "TempDir.h"
#include "areas.h"
#include "children.h"

namespace {

constexpr int kEngines = 50;
constexpr int kIntervals = 2400;  // ten minutes, about 8 MB

constexpr char kHeader[] =
    R"({"format":"pmenv recording","version":[1,0],"pmenv":"1.0.0","host":"gen1","kernel":"Linux","processors":8,)"
    R"("memoryBytes":33330661888,"start":1795309824123456,"clock":4711250000,"boot":"4e0b",)"
    R"("engines":{"names":[],"pid":null},"ignoredThreads":[],"limits":{"percentile":99.0,"skip":0.0,"tolerance":0.01,)"
    R"("engines":null,"machinePercent":null,"enginePercent":null,"sustain":10.0,"memoryPercent":null,)"
    R"("swapMegabytes":null},"command":[]})"
    "\n";
constexpr char kOutcome[] = R"({"outcome":{"verdict":"clean","believedPercentile":100.0,"cpuSeconds":1.5}})"
                            "\n";

std::string listOf(const std::vector<std::int64_t>& numbers) {
    std::string text;
    for (const std::int64_t number : numbers) text += (text.empty() ? "" : ",") + std::to_string(number);
    return text;
}

// An interval of a quarter of a second in which each engine has enough time.
std::string intervalLine(int number, std::mt19937& random) {
    const auto upTo = [&random](int most) { return std::int64_t{std::uniform_int_distribution<int>(1, most)(random)}; };
    std::string engines;
    for (int i = 0; i < kEngines; ++i) {
        const std::string pid = std::to_string(20000 + i);
        engines += (i == 0 ? "[" : ",[") + listOf({i, 0, upTo(20000), upTo(200), upTo(900), upTo(40), upTo(90000),
                                                   upTo(2000), upTo(9000), upTo(20)});
        if (number == 0) {
            engines += R"(,{"pid":)" + pid + R"(,"start":9000,"name":"PMLoadEngineMai","tid":)" + pid +
                       R"(,"thread":"sender","readable":1})";
        }
        engines += "]";
    }
    return R"({"to":)" + std::to_string((number + 1) * std::int64_t{250000}) +
           R"(,"wakes":[25,0,312],"machine":{"busy":900000,"idle":1100000,"stolen":0},"engines":[)" + engines + "]}\n";
}

void writeRecording(const std::string& path) {
    std::ofstream file(path, std::ios::binary);
    std::mt19937 random(1);
    file << kHeader;
    for (int i = 0; i < kIntervals; ++i) file << intervalLine(i, random);
    file << kOutcome;
    check(static_cast<bool>(file.flush()), "writing " + path);
}

// How long the busiest threads of all engines ran, in microseconds.
std::int64_t ranByNlohmann(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::int64_t ran = 0;
    for (std::string line; std::getline(file, line);) {
        const nlohmann::json json = nlohmann::json::parse(line);
        if (json.find("to") == json.end()) continue;
        for (const auto& engine : json["engines"]) ran += engine[2].get<std::int64_t>();
    }
    return ran;
}

}  // namespace

void measureRecordings(Report& report) {
    const TempDir directory;
    const std::string path = directory / "run.pmrec";
    writeRecording(path);
    check(ranByNlohmann(path) > 0, "the recording has engines that ran");
    Row row{"reading and judging a recording; alternatives: reading alone",
            "50 engines, 10 minutes",
            {1, 0},
            {{Kind::Ours, "",
              [path] {
                  runProgram({PMENV_BINARY, "judge", path, "--json"});
              }},
             {Kind::Alternative, "nlohmann::json, line by line", [path] { keep(ranByNlohmann(path)); }}},
            1,
            false,
            5};
#ifdef ALTERNATIVES
    row.ways.push_back({Kind::Alternative, "jq", [path] {
                            runProgram({"/usr/bin/jq", "select(.to) | [.engines[][2]] | add", path});
                        }});
#endif
    report.measure(row);
    report.measure({"pmenv chart, a recording as a page",
                    "50 engines, 10 minutes",
                    {},
                    {{Kind::Ours, "",
                      [path] {
                          runProgram({PMENV_BINARY, "chart", path});
                      }}},
                    1,
                    false,
                    5});
}
