// Reading values through the container: the full look-up, and the expansion of references.
#include <regex>
#include <string>
#include <unordered_map>
#include <vector>

#include "TempDir.h"
#include "krenv.h"
#include "pairs.h"

namespace {

constexpr int kPlainSettings = 100;

std::string plainKey(int index) { return "PLAIN_KEY_" + std::to_string(index); }

// The same settings for both sides.
const std::unordered_map<std::string, std::string>& settings() {
    static const auto all = [] {
        std::unordered_map<std::string, std::string> map{
            {"PRODUCT_DIR", "/opt/pressmark"},
            {"WORK_DIR", "#(PRODUCT_DIR)/work"},
            {"RESULTS_DIR", "#(WORK_DIR)/results/#(RUN)"},
            {"RUN", "nightly"},
        };
        for (int i = 0; i < kPlainSettings; ++i) map[plainKey(i)] = "/opt/pressmark/data/value.dat";
        return map;
    }();
    return all;
}

void loadSettings() {
    std::string text;
    for (const auto& [key, value] : settings()) text += key + " = " + value + "\n";
    const TempDir dir;
    check(KRELoadIniFile(dir.writeFile("pressmark.ini", text).c_str()) != 0, "loading the settings");
}

// The plain way: replace the leftmost reference by its expanded value until there is none. No guard against circles.
std::string expandWithRegex(std::string text) {
    static const std::regex reference("[$#]\\([^ \t\n()]+\\)");
    for (std::smatch match; std::regex_search(text, match, reference);) {
        const std::string name = match.str().substr(2, static_cast<std::size_t>(match.length()) - 3);
        std::string value;
        if (match.str()[0] == '#') {
            const auto found = settings().find(name);
            if (found != settings().end()) value = found->second;
        } else if (const char* const variable = std::getenv(name.c_str())) {
            value = variable;
        }
        text.replace(static_cast<std::size_t>(match.position()), static_cast<std::size_t>(match.length()),
                     expandWithRegex(value));
    }
    return text;
}

KREnvContainerClass& container() {
    static KREnvContainerClass container;
    return container;
}

void addExpansion(const char* what, const std::string& text) {
    const char* const ours = container().KRERuntimeResolve(text.c_str());
    check(ours != nullptr && ours == expandWithRegex(text), what);
    addPair(
        what, "std::regex", [text] { benchmark::DoNotOptimize(container().KRERuntimeResolve(text.c_str())); },
        [text] { benchmark::DoNotOptimize(expandWithRegex(text).data()); });
}

// With as many names in the process environment as in the settings.
void addFullLookUp() {
    std::vector<std::string> keys;
    for (int i = 0; i < kPlainSettings; ++i) {
        keys.push_back(plainKey(i));
        setenv(keys.back().c_str(), settings().at(keys.back()).c_str(), 1);
    }
    addPair(
        "KREGetEnvValue, one of 100 settings", "getenv, one of 100 variables",
        [order = Shuffled(keys)]() mutable { benchmark::DoNotOptimize(container().KREGetEnvValue(order.next())); },
        [order = Shuffled(keys)]() mutable { benchmark::DoNotOptimize(std::getenv(order.next())); });
}

}  // namespace

void addReadingPairs() {
    loadSettings();
    setenv("USER", "guest", 1);
    addFullLookUp();
    addExpansion("expand a path without reference", "/opt/pressmark/results/nightly/report.html");
    addExpansion("expand one reference", "#(PRODUCT_DIR)/report.html");
    addExpansion("expand four references, three levels", "#(RESULTS_DIR)/$(USER)/#(RUN).html");
    addExpansion("expand one reference behind 1,800 characters", std::string(1800, 'x') + " $(USER)");
}
