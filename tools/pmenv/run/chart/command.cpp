// chart: draws recordings as one HTML page.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "chart/page.h"
#include "chart/recordedRun.h"
#include "commandLine.h"
#include "failure.h"
#include "output.h"

namespace {

std::optional<Results> readResults(const std::vector<std::string>& files, const PageTime& page) {
    if (files.empty()) return std::nullopt;
    Results results(page.start, page.seconds);
    for (const std::string& file : files) {
        errno = 0;
        std::ifstream input(file, std::ios::binary);
        if (!input || input.peek() == std::ifstream::traits_type::eof()) {
            if (errno != 0) throw Failure(file + ": " + std::strerror(errno));
        }
        results.read(input, file);
    }
    return results;
}

int runChart(const CommandLine& line) {
    std::vector<ChartRun> runs;
    for (const std::string& file : line.arguments()) runs.push_back(readRecordedRun(file));
    const auto results = readResults(line.texts("results"), timeOf(runs));
    for (const ChartRun& run : runs) {
        for (const std::string& remark : run.remarks) printWarning(remark);
    }
    if (results) {
        for (const std::string& remark : results->remarks()) printWarning(remark);
    }
    std::cout << chartPage(runs, results);
    return kExitDone;
}

}  // namespace

Command chartCommand() {
    return {
        "chart",
        "draw recordings of runs as one HTML page: the verdict, and figures over time",
        {{"FILE", "a recording that 'judge --record' or 'stats --record' has made; several are several load generators",
          false, true, Offer::Files}},
        {{"results", Option::Kind::File, "FILE",
          "also draw the response times in FILE (CSV); may be given several times"}},
        "pmenv chart run.pmrec > run.html                        opens in a browser without a network\n"
        "pmenv chart east.pmrec west.pmrec > run.html            several load generators on one time axis\n"
        "pmenv chart run.pmrec --results run.jtl > run.html      with the response times that a load tool measured",
        runChart,
        "The page needs no script and fetches nothing. It opens with the verdict that 'pmenv judge' gives on the "
        "recording, and draws what the machine and its load engines did over time, with the time shaded in which an "
        "engine was held back. The figures that are drawn stand at its end as comma-separated values.\n\n"
        "The file of --results is the CSV of JMeter (a JTL file with field names) or of k6, or begins with the line "
        "'time,value': times in seconds or milliseconds since 1970 or as ISO dates, values in milliseconds. Rows that "
        "cannot be used and rows outside the time of the recordings are counted and told."};
}
