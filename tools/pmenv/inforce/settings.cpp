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
#include "secretTrace.h"

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

// --- secrets --------------------------------------------------------------------------------------------------------

class ReadingWatch final : public KRSResolveObserver {
public:
    explicit ReadingWatch(SecretTrace& trace) : trace_(trace) {}
    void found(const KRSReference& reference) override { trace_.found(reference); }
    void resolved(const char* value) override { trace_.resolved(value); }
    void failed(KRSResolveFailure /*why*/, const char* /*text*/) override {}

private:
    SecretTrace& trace_;
};

// What of the expanded value must not be shown, when `parts` of the stored one must not.
HiddenParts expandedParts(const std::string& stored, const HiddenParts& parts, const LoadedSecrets& meant) {
    SecretTrace trace(meant, parts);
    ReadingWatch watch(trace);
    AddDelSet inProgress;
    inProgress.observer = &watch;
    RWCString text(stored.c_str());
    KRSRuntimeResolve(inProgress, text);
    return trace.ended(text.data());
}

void hide(std::string& text, bool& hides, const HiddenParts& parts) {
    hides = parts.any();
    if (hides) text = parts.shown(text);
}

}  // namespace

Settings::Settings(std::string file, Warnings warnings) : file_(std::move(file)) {
    load(nullptr);
    if (warnings == Warnings::On) warnOfLeftOut();
}

Settings::Settings(std::string file, const Secrets& secrets) : file_(std::move(file)) {
    const auto loaded = std::make_shared<LoadedSecrets>(secrets);
    SecretLoad watch(*loaded);
    load(&watch);
    meant_ = loaded;
    warnOfLeftOut();
}

void Settings::load(KRSLoadObserver* observer) {
    LogPause quiet;
    if (KRELoadIniFile(file_.c_str(), observer) == 0) {
        throw Failure(std::string("cannot load the settings: ") + KRSLoadError());
    }
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
    }
    KRSDestroyTable(unfiltered);
}

void Settings::warnOfLeftOut() const {
    for (const LeftOut& left : leftOut_) {
        printWarning(file_ + ":" + std::to_string(left.line) + ": " + left.name + " is left out: " + kCycle);
    }
}

std::vector<Setting> Settings::all() const {
    std::vector<Setting> settings;
    for (const KRSEntry& entry : entriesOf(table_)) {
        if (!entry.inForce) continue;
        settings.push_back(settingOf(table_, entry));
        if (meant_ != nullptr) hideSecrets(settings.back());
    }
    return settings;
}

Setting Settings::readHidden(const std::string& name) const {
    Setting setting = read(name);
    if (setting.stored && meant_ != nullptr) hideSecrets(setting);
    return setting;
}

void Settings::hideSecrets(Setting& setting) const {
    HiddenParts parts = meant_->secrets().partsOf(setting.name, *setting.stored);
    const bool isFurther = table_ != nEnvSettings::gPressmarkIniTable();
    const LoadedSecrets::Value* const loaded = isFurther ? nullptr : meant_->find(setting.name);
    if (loaded != nullptr) parts.unite(loaded->parts);
    if (setting.expanded) {
        hide(*setting.expanded, setting.hidesExpanded, expandedParts(*setting.stored, parts, *meant_));
    }
    hide(*setting.stored, setting.hidesStored, parts);
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
    : Settings(NotLoaded{}, furtherFile(settings, name), settings) {
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
