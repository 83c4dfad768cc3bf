#include "settings.h"

#include <set>
#include <utility>

#include "EnvSettings.h"
#include "failure.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"
#include "libraryLog.h"
#include "nearest.h"
#include "output.h"

namespace {

constexpr std::size_t kLongestPath = 4095;

const char* const kShowsWhy = "; 'pmenv explain' shows why";
const char* const kCycle = "its references lead back to themselves, or expanding them takes more than the limits allow";

std::vector<KRSEntry> entriesOf(int table) {
    std::vector<KRSEntry> entries(KRSEntryCount(table));
    for (std::size_t i = 0; i < entries.size(); ++i) KRSGetEntry(table, i, &entries[i]);
    return entries;
}

// Reading only tells that it failed. Its resolution, run again, tells whether the result was too long.
std::string expansionProblem(const std::string& stored) {
    AddDelSet set;
    RWCString text(stored.c_str());
    if (!KRSRuntimeResolve(set, text) || text.length() <= kLongestExpansion) return kCycle;
    return "its expanded value has " + std::to_string(text.length()) + " characters, the limit is " +
           std::to_string(kLongestExpansion);
}

Setting settingOf(int table, const KRSEntry& entry) {
    Setting setting{entry.key, entry.value, std::nullopt, "", entry.line};
    OptionalValue<std::string> value;
    nEnvSettings::gGetPropertyString(value, table, entry.key);
    if (value.has()) {
        setting.expanded = value.get();
    } else {
        setting.problem = "cannot be expanded: " + expansionProblem(entry.value) + kShowsWhy;
    }
    return setting;
}

}  // namespace

Settings::Settings(std::string file) : file_(std::move(file)) {
    LogPause quiet;
    if (KRELoadIniFile(file_.c_str()) == 0) throw Failure(std::string("cannot load the settings: ") + KRSLoadError());
    table_ = nEnvSettings::gPressmarkIniTable();
    if (quiet.sawErrors()) findLeftOut();
}

// The library's record does not name the key. A value that was left out is on a line of the file that has an entry when
// nothing is filtered, and has none in the table.
void Settings::findLeftOut() {
    std::set<int> loadedLines;
    for (const KRSEntry& entry : entriesOf(table_)) loadedLines.insert(entry.line);

    const int unfiltered = KRSCreateTable();
    KRSLoad(file_.c_str(), unfiltered, nullptr);
    for (const KRSEntry& entry : entriesOf(unfiltered)) {
        if (loadedLines.count(entry.line) != 0) continue;
        leftOut_.push_back({entry.key, entry.line});
        printWarning(file_ + ":" + std::to_string(entry.line) + ": " + entry.key + " is left out: " + kCycle);
    }
    KRSDestroyTable(unfiltered);
}

std::vector<Setting> Settings::all() const {
    std::vector<Setting> settings;
    for (const KRSEntry& entry : entriesOf(table_)) {
        if (entry.inForce) settings.push_back(settingOf(table_, entry));
    }
    return settings;
}

Setting Settings::read(const std::string& name) const {
    for (const KRSEntry& entry : entriesOf(table_)) {
        if (entry.inForce && name == entry.key) return settingOf(table_, entry);
    }
    return {name, std::nullopt, std::nullopt, whyAbsent(name), 0};
}

std::string Settings::whyAbsent(const std::string& name) const {
    for (const LeftOut& left : leftOut_) {
        if (left.name != name) continue;
        return "is left out (line " + std::to_string(left.line) + "): " + kCycle + kShowsWhy;
    }
    std::vector<std::string> names;
    for (const KRSEntry& entry : entriesOf(table_)) {
        if (entry.inForce) names.emplace_back(entry.key);
    }
    return "no such setting" + didYouMean(nearestNames(name, names));
}

std::string furtherFile(const Settings& settings, const std::string& name) {
    const Setting directory = settings.read("KR_BIN");
    if (!directory.expanded) {
        throw Failure(settings.file() + ": KR_BIN: " + directory.problem +
                      "\nA further settings file is read from the directory that this setting names.");
    }
    std::string path = *directory.expanded + "/" + name;
    if (path.size() <= kLongestPath) return path;
    throw Failure("the path has " + std::to_string(path.size()) + " characters, the limit is " +
                  std::to_string(kLongestPath) + ": " + path.substr(0, 60) + "...");
}

FurtherSettings::FurtherSettings(const Settings& settings, const std::string& name)
    : Settings(NotLoaded{}, furtherFile(settings, name)) {
    LogPause quiet;
    KREnvContainerClass env;
    nEnvSettings::gFileInitTable(env, name.c_str(), table_);
    if (!quiet.sawErrors()) return;
    KRSDestroyTable(table_);
    throw Failure(std::string("cannot load the settings: ") + KRSLoadError());
}

FurtherSettings::~FurtherSettings() { KRSDestroyTable(table_); }

std::string placeOf(const Settings& settings, const Setting& setting) {
    return settings.file() + (setting.line > 0 ? ":" + std::to_string(setting.line) : "");
}
