// Measures reading values through the container.
#include <cstdlib>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <dlfcn.h>

#include "TempDir.h"
#include "areas.h"
#include "krenv.h"

#ifdef ALTERNATIVES
#include <glib.h>
#endif

namespace {

constexpr int kPlainSettings = 100;
constexpr char kPlainValue[] = "/opt/pressmark/data/value.dat";

std::string plainKey(int index) { return "PLAIN_KEY_" + std::to_string(index); }

// The same settings for all ways.
const std::unordered_map<std::string, std::string>& settings() {
    static const auto all = [] {
        std::unordered_map<std::string, std::string> map{
            {"REPORT", "#(RESULTS_DIR)/$(BENCH_USER)/report.html"},
            {"RESULTS_DIR", "/opt/pressmark/#(RUN)"},
            {"RUN", "nightly"},
        };
        for (int i = 0; i < kPlainSettings; ++i) map[plainKey(i)] = kPlainValue;
        return map;
    }();
    return all;
}

std::string fileText() {
    std::string text;
    for (const auto& [key, value] : settings()) text += key + " = " + value + "\n";
    return text;
}

const char* read(const char* name) {
    static KREnvContainerClass container;
    return container.KREGetEnv(name);
}

#ifdef ALTERNATIVES
// --- other ways -----------------------------------------------------------------------------------------------------

// Returns another of the plain settings at each call.
const char* nextKey() {
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> all;
        for (int i = 0; i < kPlainSettings; ++i) all.push_back(plainKey(i * 37 % kPlainSettings));
        return all;
    }();
    static std::size_t at = 0;
    at = at + 1 < keys.size() ? at + 1 : 0;
    return keys[at].c_str();
}

void measurePlain(Report& report) {
    GKeyFile* const file = g_key_file_new();
    const std::string text = "[settings]\n" + fileText();
    check(g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr) != 0, "GKeyFile");
    report.measure({"KREGetEnv, plain value",
                    "100 settings",
                    {1, 0},
                    {{Kind::Ours, "", [] { keep(read(nextKey())); }},
                     {Kind::Alternative, "g_key_file_get_string",
                      [file] { g_free(g_key_file_get_string(file, "settings", nextKey(), nullptr)); }},
                     {Kind::Alternative, "g_key_file_get_value",
                      [file] { g_free(g_key_file_get_value(file, "settings", nextKey(), nullptr)); }}}});
    g_key_file_free(file);
}

// The library's algorithm: the leftmost reference is replaced by its expanded value until there is none, and the texts
// in progress are remembered, so that a cycle is noticed.
bool expandWithRegex(std::set<std::string>& inProgress, std::string& text) {
    static const std::regex reference("[$#]\\([^ \t\n()]+\\)");
    const auto [own, isNew] = inProgress.insert(text);
    if (!isNew) return false;
    for (std::smatch match; std::regex_search(text, match, reference);) {
        const std::string name = match.str().substr(2, static_cast<std::size_t>(match.length()) - 3);
        std::string value;
        if (match.str()[0] == '#') {
            const auto found = settings().find(name);
            if (found != settings().end()) value = found->second;
        } else if (const char* const variable = std::getenv(name.c_str())) {
            value = variable;
        }
        if (!expandWithRegex(inProgress, value)) return false;
        text.replace(static_cast<std::size_t>(match.position()), static_cast<std::size_t>(match.length()), value);
    }
    inProgress.erase(own);
    return true;
}

std::string readWithRegex(const char* name) {
    std::string text = settings().at(name);
    std::set<std::string> inProgress;
    return expandWithRegex(inProgress, text) ? text : std::string();
}
#endif

void measureReferences(Report& report) {
    Row row{"KREGetEnv, three references", "two levels", {10, 0}, {}};
    row.ways.push_back({Kind::Ours, "", [] { keep(read("REPORT")); }});
#ifdef ALTERNATIVES
    check(read("REPORT") == readWithRegex("REPORT"), "expanding with std::regex");
    row.ways.push_back({Kind::Alternative, "std::regex", [] { keep(readWithRegex("REPORT").data()); }});
#endif
    report.measure(row);
}

// --- the test for an observer ---------------------------------------------------------------------------------------

using Read = const char* (*)(const char* name);

// Opens a copy of the library, makes it load the settings, and returns its reader.
Read openVariant(const char* library, const std::string& file) {
    void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    check(handle != nullptr, library);
    const auto load = reinterpret_cast<int (*)(const char*)>(dlsym(handle, "loadVariant"));
    check(load(file.c_str()) == 1, library);
    return reinterpret_cast<Read>(dlsym(handle, "readVariant"));
}

void measureObservation(Report& report, const std::string& file) {
    const Read observed = openVariant(OBSERVED, file);
    const Read unobserved = openVariant(UNOBSERVED, file);
    report.measure({"KREGetEnv without an observer; floor: no observers in the code",
                    "three references",
                    {0, 1.05},
                    {{Kind::Ours, "", [observed] { keep(observed("REPORT")); }},
                     {Kind::Floor, "", [unobserved] { keep(unobserved("REPORT")); }}}});
}

}  // namespace

void measureReading(Report& report) {
    const TempDir dir;
    const std::string file = dir.writeFile("pressmark.ini", fileText());
    check(KRELoadIniFile(file.c_str()) != 0, "loading the settings");
    setenv("BENCH_USER", "guest", 1);
#ifdef ALTERNATIVES
    measurePlain(report);
#endif
    measureReferences(report);
    measureObservation(report, file);
}
