#include "explain/observedSettings.h"

#include <utility>

#include "failure.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"
#include "libraryLog.h"

namespace {

// For all entries together. A file can make the library replace 65,536 references in each of a million entries.
constexpr std::size_t kMostStepsKept = 2'000'000;
constexpr std::size_t kMostTextKept = std::size_t{128} << 20;

std::size_t textOf(const std::vector<ObservedStep>& steps) {
    std::size_t length = 0;
    for (const ObservedStep& step : steps) {
        length += step.written.text.size() + textOf(step.steps);
        for (const auto* const text : {&step.value, &step.expanded}) length += *text ? (**text).text.size() : 0;
    }
    return length;
}

}  // namespace

// Writes down what becomes of each entry.
class ObservedSettings::LoadRecorder : public KRSLoadObserver {
public:
    LoadRecorder(ObservedSettings& settings, WorkLimit* work) : settings_(settings), work_(work) {}

    void begun(const char* key, const char* value) override {
        if (work_ != nullptr) work_->grantEntries(1);
        ObservedEntry entry{key, 0, 0, settings_.written(key, value), std::nullopt, {}};
        const auto definedBy = [this](const std::string& name) { return settings_.inForce(name); };
        const bool mayKeep = stepsKept_ < kMostStepsKept && textKept_ < kMostTextKept;
        resolution_.emplace(key, settings_.entries_.size(), value, definedBy,
                            SecretTrace(settings_.secrets_, settings_.secrets_.secrets().partsOf(key, value)),
                            mayKeep ? Recorder::kMostSteps : 0);
        settings_.entries_.push_back(std::move(entry));
    }
    void found(const KRSReference& reference) override {
        if (work_ != nullptr) work_->spend(reference);
        resolution_->found(reference);
    }
    void resolved(const char* value) override { resolution_->resolved(value); }
    void failed(KRSResolveFailure why, const char* text) override { resolution_->failed(why, text); }
    void ended(const char* value) override {
        ObservedEntry& entry = settings_.entries_.back();
        entry.load = resolution_->take();
        if (value != nullptr) store(entry, value);
        stepsKept_ += countSteps(entry.load.steps) + entry.load.origins.replacements();
        textKept_ += textOf(entry.load.steps);
        EntriesOfKey& ofKey = settings_.byKey_[entry.key];
        ofKey.all.push_back(settings_.entries_.size() - 1);
        if (value != nullptr) ofKey.inForce = ofKey.all.back();
    }

private:
    void store(ObservedEntry& entry, const char* value) {
        const HiddenParts hidden = resolution_->hiddenOf(value);
        entry.stored = Excerpt(value, hidden);
        settings_.secrets_.store(entry.key, {hidden, entry.load.origins.replacements() > 0});
    }

    ObservedSettings& settings_;
    WorkLimit* work_;
    std::optional<Recorder> resolution_;  // of the entry that is being loaded
    std::size_t stepsKept_ = 0;
    std::size_t textKept_ = 0;
};

ObservedSettings::ObservedSettings(std::string file, Secrets secrets, WorkLimit* work)
    : file_(std::move(file)), secrets_(std::move(secrets)) {
    const LogPause quiet;  // what is left out is told where it matters
    LoadRecorder recorder(*this, work);
    if (KRELoadIniFile(file_.c_str(), &recorder) == 0) {
        throw Failure(std::string("cannot load the settings: ") + KRSLoadError());
    }
    readPlaces();
}

Excerpt ObservedSettings::written(const std::string& key, std::string_view value) const {
    return {value, secrets_.secrets().partsOf(key, value)};
}

// The load does not tell where an entry stands. The file is read once more for that.
void ObservedSettings::readPlaces() {
    std::size_t count = 0;
    bool same = true;
    const int read = KRSReadLines(file_.c_str(), [&](const KRSLine& line) {
        if (line.key == nullptr) return;
        same = same && count < entries_.size() && entries_[count].key == line.key &&
               entries_[count].raw.text == written(line.key, line.value).text;
        if (!same) return;
        entries_[count].line = line.number;
        entries_[count].column = line.valueColumn;
        ++count;
    });
    if (read == 0) throw Failure(std::string("cannot read the settings: ") + KRSLoadError());
    if (!same || count != entries_.size()) throw Failure(file_ + ": the file has changed while it was read; try again");
}

const std::vector<std::size_t>& ObservedSettings::entriesOf(const std::string& key) const {
    static const std::vector<std::size_t> none;
    const auto found = byKey_.find(key);
    return found != byKey_.end() ? found->second.all : none;
}

std::optional<std::size_t> ObservedSettings::inForce(const std::string& key) const {
    const auto found = byKey_.find(key);
    return found != byKey_.end() ? found->second.inForce : std::nullopt;
}

std::vector<std::string> ObservedSettings::names() const {
    std::vector<std::string> names;
    for (const auto& [key, entries] : byKey_) {
        if (entries.inForce) names.push_back(key);
    }
    return names;
}
