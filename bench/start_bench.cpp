// Measures initialisation, and pmenv as a process.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <ifaddrs.h>
#include <netdb.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include "Logging.h"
#include "TempDir.h"
#include "areas.h"
#include "children.h"
#include "floors.h"
#include "krenv.h"

namespace {

constexpr char kSettings[] = "KR_VERSION = 12\nKR_BUILD = 345\nRESULTS_DIR = /opt/pressmark/results\n";

void runAndRead(const char* command) {
    std::FILE* const pipe = popen(command, "r");
    check(pipe != nullptr, command);
    char line[128];
    while (std::fgets(line, sizeof line, pipe) != nullptr) keep(line[0]);
    pclose(pipe);
}

// Makes the system calls of the start-up report.
void askSystem(const std::string& settings) {
    struct stat status {};
    stat(settings.c_str(), &status);
    readStart(settings.c_str());
    readStatistics({});
    char name[150];
    gethostname(name, sizeof name);
    keep(gethostbyname(name));
    ifaddrs* addresses = nullptr;
    if (getifaddrs(&addresses) == 0) freeifaddrs(addresses);
    utsname names{};
    uname(&names);
    runAndRead("cat /proc/cpuinfo | grep \"model name\"");
    runAndRead("getconf LONG_BIT");
}

// Each call runs in a process of its own, because KREInit reads the processor's name only once. The records are
// dropped.
void measureInit(Report& report, const TempDir& dir) {
    nLogging::gSetSink([](const nLogging::Record& record) { keep(record.text.data()); });
    const std::string directory = dir.path();
    report.measure({"KREInit",
                    "3 settings",
                    {0, 1.2},
                    {{Kind::Ours, "", [directory] { check(KREInit(directory.c_str()) == 1, "KREInit"); }},
                     {Kind::Floor, "", [file = dir / "pressmark.ini"] { askSystem(file); }}},
                    1,
                    true});
    nLogging::gSetSink({});
}

void measurePmenv(Report& report, const TempDir& dir) {
    const std::string file = dir / "pressmark.ini";
    report.measure(
        {"pmenv get NAME, a process",
         "3 settings",
         {0, 1.5},
         {{Kind::Ours, "",
           [file] {
               runProgram({PMENV_BINARY, "get", "RESULTS_DIR", "--ini", file});
           }},
          {Kind::Alternative, "an empty program without the C++ library", [] { runProgram({EMPTY_C_PROGRAM}); }},
          {Kind::Floor, "", [] { runProgram({EMPTY_PROGRAM}); }}}});
}

// A third of the values have references to others, in braces and in parentheses.
std::string manySettings(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        const std::string above = "KEY_" + std::to_string(i - 1);
        text += "KEY_" + std::to_string(i) + " = ";
        text += i % 3 == 1 ? "#(" + above + ")/x #{" + above + "}\n" : "/opt/pressmark/data/value.dat\n";
    }
    return text;
}

// Measures the whole process. The file has no mistakes, so that next to nothing is printed.
void measureWholeFiles(Report& report, const TempDir& dir) {
    const std::string file = dir.writeFile("many.ini", manySettings(100'000));
    report.measure(
        {"pmenv check FILE, a process", "100,000 settings", {}, {{Kind::Ours, "", [file] {
                                                                      runProgram({PMENV_BINARY, "check", file});
                                                                  }}}});
    report.measure({"pmenv explain NAME, a process",
                    "100,000 settings",
                    {},
                    {{Kind::Ours, "", [file] {
                          runProgram({PMENV_BINARY, "explain", "KEY_99997", "--ini", file});
                      }}}});
}

}  // namespace

void measureStart(Report& report) {
    const TempDir dir;
    dir.writeFile("pressmark.ini", kSettings);
    measureInit(report, dir);
    measurePmenv(report, dir);
    measureWholeFiles(report, dir);
}
