#include "diff/side.h"

#include <utility>

#include "EnvSettings.h"
#include "explain/explanation.h"
#include "explain/explanationText.h"
#include "failure.h"
#include "krresolve.h"
#include "krs.h"
#include "settings.h"
#include "workLimit.h"

namespace {

// For all values together; those behind are compared as well, but no reason is told for them.
constexpr std::size_t kMostStepsKept = 500'000;

// The library's settings, released at the end of the scope.
class LoadedTable {
public:
    LoadedTable() = default;
    ~LoadedTable() { KRSDestroyTable(nEnvSettings::gPressmarkIniTable()); }
    LoadedTable(const LoadedTable&) = delete;
    LoadedTable& operator=(const LoadedTable&) = delete;
};

class LimitedWatch final : public KRSResolveObserver {
public:
    LimitedWatch(Recorder& recorder, WorkLimit& work) : recorder_(recorder), work_(work) {}
    void found(const KRSReference& reference) override {
        work_.spend(reference);
        recorder_.found(reference);
    }
    void resolved(const char* value) override { recorder_.resolved(value); }
    void failed(KRSResolveFailure why, const char* text) override { recorder_.failed(why, text); }

private:
    Recorder& recorder_;
    WorkLimit& work_;
};

class Reader {
public:
    Reader(Side& side, WorkLimit& work) : side_(side), work_(work) {}

    SideValue read(const std::string& key, std::size_t entry);
    SideValue stored(const std::string& key, std::size_t entry) const;

private:
    static const char* storedText(const std::string& key) {
        return KRSGetValue(nEnvSettings::gPressmarkIniTable(), key.c_str());
    }
    static void setProblem(SideValue& value, ExplainedFailure failure) { value.problem = failureText(failure); }

    Side& side_;
    WorkLimit& work_;
    std::size_t stepsKept_ = 0;
};

SideValue Reader::read(const std::string& key, std::size_t entry) {
    const ObservedSettings& settings = *side_.settings;
    const char* const stored = storedText(key);
    Recorder recorder(
        key, entry, stored, [&](const std::string& name) { return settings.inForce(name); },
        SecretTrace(settings.secrets(), key, stored), stepsKept_ < kMostStepsKept ? Recorder::kMostSteps : 0);
    LimitedWatch watch(recorder, work_);
    AddDelSet inProgress;
    inProgress.observer = &watch;
    RWCString resolved(stored);
    const bool done = KRSRuntimeResolve(inProgress, resolved);

    Observation observed = recorder.take();
    SideValue value{entry, std::nullopt, std::nullopt, "", std::move(observed.steps)};
    stepsKept_ += countSteps(value.steps);
    if (!done) {
        setProblem(value, {reasonOf(observed.failure->why)});
    } else if (resolved.length() > kLongestExpansion) {
        setProblem(value, {ExplainedFailure::Reason::TooLong, false, resolved.length()});
    } else {
        value.text = resolved.data();
        value.shown = Excerpt(*value.text, recorder.hiddenOf(*value.text));
    }
    return value;
}

SideValue Reader::stored(const std::string& key, std::size_t entry) const {
    return {entry, storedText(key), side_.settings->entries()[entry].stored, "", {}};
}

void readAll(Side& side, WorkLimit& work, Form form) {
    const std::vector<ObservedEntry>& entries = side.settings->entries();
    work.grantEntries(entries.size());
    Reader reader(side, work);
    for (std::size_t entry = 0; entry < entries.size(); ++entry) {
        const std::string& key = entries[entry].key;
        if (side.settings->inForce(key) != entry) continue;
        side.keys.push_back(key);
        side.values.emplace(key, form == Form::Stored ? reader.stored(key, entry) : reader.read(key, entry));
    }
}

Side readHere(const SideRequest& request) {
    const LoadedTable table;
    WorkLimit work;
    Side side{request.name, nullptr, {}, {}};
    side.settings = std::make_unique<const ObservedSettings>(request.path, request.secrets, &work);
    readAll(side, work, request.form);
    return side;
}

// The library names the file by its path, which for a pipe is one that the user has never seen.
std::string named(std::string text, const SideRequest& request) {
    const std::size_t at = text.find(request.path);
    return at == std::string::npos ? text : text.replace(at, request.path.size(), request.name);
}

}  // namespace

const SideValue* Side::find(const std::string& key) const {
    const auto found = values.find(key);
    return found != values.end() ? &found->second : nullptr;
}

Side readSide(const SideRequest& request) {
    std::optional<ScopedVariables> variables;
    if (request.variables) variables.emplace(*request.variables);
    try {
        return readHere(request);
    } catch (const Failure& failure) {
        throw Failure(named(failure.what(), request), kExitCannotTell);
    } catch (const WorkLimit::Exceeded&) {
        throw Failure(request.name + ": expanding the values takes too much work; 'pmenv check' tells where",
                      kExitCannotTell);
    }
}
