// krenv_bench run OUT.json [AREA...]     measures and writes the figures
// krenv_bench table OUT.json IN.json...  joins the figures of several runs in one file and prints them as a table
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "areas.h"
#include "population.h"

namespace {

struct Area {
    const char* name;
    void (*measure)(Report& report);
};

// The processes come first, while this program is small.
constexpr Area kAreas[] = {
    {"processes", measureProcesses}, {"watching", measureWatching}, {"recordings", measureRecordings},
    {"start", measureStart},         {"files", measureFiles},       {"paths", measurePaths},
    {"reading", measureReading},     {"settings", measureSettings}, {"log", measureLog},
};

void write(const char* path, const nlohmann::json& rows) {
    std::ofstream file(path);
    file << rows.dump(2) << "\n";
    check(static_cast<bool>(file.flush()), std::string("writing ") + path);
}

void run(const char* out, const std::vector<std::string>& asked) {
    Report report;
    for (const Area& area : kAreas) {
        if (asked.empty() || std::find(asked.begin(), asked.end(), area.name) != asked.end()) area.measure(report);
    }
    write(out, report.rows());
}

// Rows of the same operation and size are put next to each other.
void joinAndPrint(const char* out, const std::vector<std::string>& in) {
    nlohmann::json rows = nlohmann::json::array();
    for (const std::string& path : in) {
        const nlohmann::json more = nlohmann::json::parse(std::ifstream(path));
        for (const nlohmann::json& row : more) {
            const auto same = std::find_if(rows.rbegin(), rows.rend(), [&row](const nlohmann::json& other) {
                return other["operation"] == row["operation"] && other["size"] == row["size"];
            });
            rows.insert(same != rows.rend() ? same.base() : rows.end(), row);
        }
    }
    write(out, rows);
    std::fputs(tableOf(rows).c_str(), stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 4 && words[0] == "population") return runPopulation(words[1], words[2], words[3]);
    if (words.size() < 2 || (words[0] != "run" && words[0] != "table")) {
        std::fputs("usage: krenv_bench run OUT.json [AREA...] | table OUT.json IN.json...\n", stderr);
        return 2;
    }
    const std::vector<std::string> rest(words.begin() + 2, words.end());
    if (words[0] == "run") {
        run(argv[2], rest);
    } else {
        joinAndPrint(argv[2], rest);
    }
}
