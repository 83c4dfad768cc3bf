#include "check/expansion.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "EnvSettings.h"
#include "check/namelessFile.h"
#include "failure.h"
#include "krenv.h"
#include "krs.h"
#include "libraryLog.h"
#include "secretTrace.h"
#include "workLimit.h"

namespace {

using When = Expansion::When;
using Visit = std::function<void(const Expansion&)>;

std::size_t hashOf(std::string_view text) { return std::hash<std::string_view>()(text); }

// --- watching -------------------------------------------------------------------------------------------------------

// Watches the expansion of one entry after the other. While a value is read, the settings that it refers to are read on
// the way; what is seen of these is kept as well, so that each needs to be read only once.
class ExpansionWatch final : public KRSLoadObserver {
public:
    ExpansionWatch(SettingsText& settings, const Visit& visit)
        : settings_(settings),
          visit_(visit),
          secrets_(settings.secrets()),
          isRead_(settings.entries().size()),
          inForce_(settings.entries().size()) {
        work_.grantEntries(settings.entries().size());
    }

    // The load: entry by entry, in file order.
    void begun(const char* /*key*/, const char* value) override { start(loaded_, When::Loading, value); }
    void ended(const char* value) override;
    // Reading a value; `end` is told the outcome.
    void beginReading(std::size_t entry, const char* stored) { start(entry, When::Reading, stored); }
    void endReading(const char* expanded) { finishOutermost(expanded); }

    void found(const KRSReference& reference) override;
    void resolved(const char* value) override;
    void failed(KRSResolveFailure why, const char* text) override;

    bool isRead(std::size_t entry) const { return isRead_[entry]; }
    // What is secret in the settings that references mean.
    LoadedSecrets& secrets() { return secrets_; }
    // How many entries the load has seen the end of.
    std::size_t loaded() const { return loaded_; }
    // No more is looked at, because expanding `entry` takes too much work.
    void giveUp(std::size_t entry);

private:
    // A text that is being expanded, each in the one before.
    struct Level {
        ChainLink link;
        bool owns;  // its expansion is the last one in progress
        bool isNew = false;
    };
    // An expansion that is being watched.
    struct Watched {
        std::size_t entry;
        Expansion expansion;
        std::set<std::string> noted{};
    };

    void start(std::size_t entry, When when, const char* value);
    SecretTrace traceOf(const Entry& entry, When when, const char* value) const;
    bool startNested(const KRSReference& reference, const std::string& name);
    void finishOutermost(const char* expanded);
    void finish(const char* expanded, HiddenParts hidden);
    void note(const KRSReference& reference, const std::string& name);
    void countUse(const std::string& name);
    std::optional<std::size_t> inForce(const std::string& name) const;
    void closeCycle(std::vector<ChainLink>& chain) const;
    static void place(Expansion& expansion);

    SettingsText& settings_;
    const Visit& visit_;
    WorkLimit work_;
    LoadedSecrets secrets_;
    std::optional<SecretTrace> trace_;  // of the entry that is being expanded
    std::vector<bool> isRead_;
    std::vector<std::optional<std::size_t>> inForce_;  // of the key whose first entry has that index
    std::size_t loaded_ = 0;
    std::vector<Level> levels_;
    std::vector<Watched> watched_;  // the entry's, then those of the settings on the way
};

void ExpansionWatch::start(std::size_t entry, When when, const char* value) {
    const Entry& started = settings_.entries()[entry];
    trace_.emplace(traceOf(started, when, value));
    levels_.clear();
    watched_.clear();
    levels_.push_back({{started.key, false, hashOf(value)}, true});
    watched_.push_back({entry, {&started, when, when == When::Reading && started.value != value}});
}

SecretTrace ExpansionWatch::traceOf(const Entry& entry, When when, const char* value) const {
    if (when == When::Reading && !settings_.isFurther()) return {secrets_, entry.key, value};
    return {secrets_, secrets_.secrets().partsOf(entry.key, value)};
}

void ExpansionWatch::found(const KRSReference& reference) {
    constexpr std::size_t kLongestName = 200;
    const std::string_view value(reference.value != nullptr ? reference.value : "");
    work_.spend(reference);

    const std::string name = reference.name();
    trace_->found(reference);
    if (levels_.back().owns) note(reference, name);
    const bool watched = levels_.back().owns && reference.isVariable();
    const bool isNew = !reference.isVariable() && startNested(reference, name);
    const std::string shown = trace_->hidesReference() ? HiddenParts::kShown : name.substr(0, kLongestName);
    levels_.push_back({{shown, reference.isVariable(), hashOf(value)}, watched || isNew, isNew});
}

// In the entry's own value, or in that of an environment variable, which no line of the file could be blamed for.
void ExpansionWatch::note(const KRSReference& reference, const std::string& name) {
    const bool isDefined = reference.value != nullptr;
    if (watched_.back().expansion.when == When::Loading && !reference.isVariable()) countUse(name);
    if (isDefined && (reference.isVariable() || !settings_.isFurther())) return;
    const std::string written = reference.written();
    if (!watched_.back().noted.insert(written).second) return;
    watched_.back().expansion.references.push_back({written, name, reference.isVariable(), isDefined,
                                                    levels_.back().link.isVariable ? levels_.back().link.name : "",
                                                    std::nullopt, trace_->hidesReference()});
}

void ExpansionWatch::countUse(const std::string& name) {
    const std::optional<std::size_t> used = inForce(name);
    if (!used) return;
    int& line = settings_.entries()[*used].usedBy;
    if (line == 0) line = watched_.back().expansion.entry->line;
}

// The entry that counts by now; none of a further file, which is not loaded.
std::optional<std::size_t> ExpansionWatch::inForce(const std::string& name) const {
    const Entry* const last = settings_.find(name);
    return last != nullptr ? inForce_[last->first] : std::nullopt;
}

// A setting of this file that has not been read yet is read now.
bool ExpansionWatch::startNested(const KRSReference& reference, const std::string& name) {
    if (watched_.front().expansion.when == When::Loading) return false;
    const std::optional<std::size_t> entry = inForce(name);
    if (!entry || isRead_[*entry]) return false;
    // In a secret all is hidden, also what may be shown of the setting itself.
    if (trace_->isInSecret() && !settings_.secrets().isSecret(name)) return false;
    const Entry& nested = settings_.entries()[*entry];
    watched_.push_back({*entry, {&nested, When::Reading, nested.value != reference.value}});
    return true;
}

void ExpansionWatch::resolved(const char* value) {
    const bool isNew = levels_.back().isNew;
    trace_->resolved(value);
    levels_.pop_back();
    if (isNew) finish(value, trace_->resolvedParts());
}

void ExpansionWatch::failed(KRSResolveFailure why, const char* /*text*/) {
    watched_.erase(std::next(watched_.begin()), watched_.end());
    Expansion& expansion = watched_.front().expansion;
    expansion.failure = why;
    for (const Level& level : levels_) expansion.chain.push_back(level.link);
    if (why == KRSResolveFailure::Cycle) closeCycle(expansion.chain);
}

// The last text equals one before it. What that one leads to comes next, unless it is the last text's own name.
void ExpansionWatch::closeCycle(std::vector<ChainLink>& chain) const {
    const std::size_t hash = chain.back().valueHash;
    const auto equal =
        std::find_if(chain.begin(), chain.end(), [=](const ChainLink& link) { return link.valueHash == hash; });
    const bool closed = equal->name == chain.back().name && equal->isVariable == chain.back().isVariable;
    if (!closed) chain.push_back(ChainLink(*std::next(equal)));
}

void ExpansionWatch::ended(const char* value) {
    Entry& entry = settings_.entries()[loaded_];
    entry.leftOut = value == nullptr;
    if (value != nullptr) {
        inForce_[entry.first] = loaded_;
        secrets_.store(entry.key, {trace_->ended(value), entry.value != value});
    }
    ++loaded_;
    finishOutermost(value);
}

void ExpansionWatch::finishOutermost(const char* expanded) {
    finish(expanded, expanded != nullptr ? trace_->ended(expanded) : HiddenParts());
}

void ExpansionWatch::finish(const char* expanded, HiddenParts hidden) {
    Watched done = std::move(watched_.back());
    watched_.pop_back();
    if (done.expansion.when == When::Reading) isRead_[done.entry] = true;
    if (expanded != nullptr) done.expansion.text = expanded;
    done.expansion.hidden = std::move(hidden);
    place(done.expansion);
    visit_(done.expansion);
}

// They come from left to right. One that a substitution has put in is told of where it stands.
void ExpansionWatch::place(Expansion& expansion) {
    const std::string& value = expansion.entry->value;
    std::size_t from = 0;
    for (Reference& reference : expansion.references) {
        if (!reference.variable.empty()) continue;
        const std::size_t position = value.find(reference.written, from);
        if (position == std::string::npos) continue;
        reference.position = position;
        from = position + reference.written.size();
    }
    const auto isElsewhere = [&](const Reference& reference) {
        return expansion.replaced && reference.variable.empty() && !reference.position;
    };
    std::vector<Reference>& all = expansion.references;
    all.erase(std::remove_if(all.begin(), all.end(), isElsewhere), all.end());
}

void ExpansionWatch::giveUp(std::size_t entry) {
    Expansion last{&settings_.entries()[entry], When::Reading};
    last.gaveUp = true;
    visit_(last);
}

// --- the library's settings -----------------------------------------------------------------------------------------

// The library's settings for as long as this object lives.
class LoadedSettings {
public:
    LoadedSettings(const std::string& path, KRSLoadObserver* observer) {
        const LogPause quiet;  // what fails is a finding
        try {
            loaded_ = KRELoadIniFile(path.c_str(), observer) != 0;
        } catch (const WorkLimit::Exceeded&) {
            complete_ = false;
        }
        table_ = nEnvSettings::gPressmarkIniTable();
    }
    ~LoadedSettings() { KRSDestroyTable(table_); }
    LoadedSettings(const LoadedSettings&) = delete;
    LoadedSettings& operator=(const LoadedSettings&) = delete;

    bool loaded() const { return loaded_; }
    // False when the observer ended the load.
    bool complete() const { return complete_; }
    int table() const { return table_; }

private:
    bool loaded_ = false;
    bool complete_ = true;
    int table_ = 0;
};

// --- reading every value --------------------------------------------------------------------------------------------

void read(ExpansionWatch& watch, std::size_t entry, const char* stored) {
    AddDelSet inProgress;
    inProgress.observer = &watch;
    RWCString text(stored);
    watch.beginReading(entry, stored);
    const bool expanded = KRSRuntimeResolve(inProgress, text);
    watch.endReading(expanded ? text.data() : nullptr);
}

// A value that can be read, and its entry in the file.
struct Readable {
    std::size_t entry;
    const char* stored;
};

std::vector<Readable> readableOf(const SettingsText& settings, int table) {
    std::vector<Readable> readable;
    std::size_t entry = 0;
    KRSEntry stored{};
    for (std::size_t i = 0; KRSGetEntry(table, i, &stored); ++i) {
        while (settings.entries()[entry].line != stored.line) ++entry;
        if (stored.inForce) readable.push_back({entry, stored.value});
    }
    return readable;
}

// The settings that this text seems to refer to.
std::vector<const Entry*> mentionedIn(const std::string& text, const SettingsText& settings) {
    std::vector<const Entry*> mentioned;
    for (std::size_t at = 0; (at = text.find("#(", at)) != std::string::npos; at += 2) {
        const std::size_t end = text.find(')', at);
        if (end == std::string::npos) break;
        const Entry* const entry = settings.find(text.substr(at + 2, end - at - 2));
        if (entry != nullptr) mentioned.push_back(entry);
    }
    return mentioned;
}

// Those first that no other seems to refer to, because reading them reads the others on the way.
void putOutermostFirst(std::vector<Readable>& readable, const SettingsText& settings) {
    std::vector<bool> isMentioned(settings.entries().size());
    for (const Entry& entry : settings.entries()) {
        for (const Entry* const mentioned : mentionedIn(entry.value, settings)) {
            isMentioned[static_cast<std::size_t>(mentioned - settings.entries().data())] = true;
        }
    }
    std::stable_partition(readable.begin(), readable.end(),
                          [&](const Readable& value) { return !isMentioned[value.entry]; });
}

void readAll(ExpansionWatch& watch, const std::vector<Readable>& readable) {
    for (const Readable& value : readable) {
        if (watch.isRead(value.entry)) continue;
        try {
            read(watch, value.entry, value.stored);
        } catch (const WorkLimit::Exceeded&) {
            return watch.giveUp(value.entry);
        }
    }
}

void expandPressmark(SettingsText& settings, const Visit& visit) {
    ExpansionWatch watch(settings, visit);
    const NamelessFile file(settings.loadable());
    const LoadedSettings loaded(file.path(), &watch);
    if (!loaded.complete()) return watch.giveUp(watch.loaded());
    if (!loaded.loaded()) throw Failure(settings.name() + ": cannot be loaded for checking: " + KRSLoadError());
    std::vector<Readable> readable = readableOf(settings, loaded.table());
    putOutermostFirst(readable, settings);
    readAll(watch, readable);
}

std::vector<std::string> namesIn(int table) {
    std::vector<std::string> names;
    KRSEntry entry{};
    for (std::size_t i = 0; KRSGetEntry(table, i, &entry); ++i) {
        if (entry.inForce) names.emplace_back(entry.key);
    }
    return names;
}

void expandFurther(SettingsText& settings, const std::string& pressmark, const Visit& visit) {
    ExpansionWatch watch(settings, visit);
    SecretLoad secrets(watch.secrets());
    const LoadedSettings loaded(pressmark, &secrets);
    if (!loaded.loaded()) throw Failure(std::string("cannot load the settings: ") + KRSLoadError());
    settings.setReferable(namesIn(loaded.table()));
    std::vector<Readable> readable;
    for (std::size_t i = 0; i < settings.entries().size(); ++i) {
        const Entry& entry = settings.entries()[i];
        if (settings.find(entry.key) == &entry) readable.push_back({i, entry.value.c_str()});
    }
    readAll(watch, readable);
}

}  // namespace

std::string Expansion::asWritten(char sign, const std::string& name) const {
    return sign + (when == When::Loading ? "{" + name + "}" : "(" + name + ")");
}

void expandAll(SettingsText& settings, const std::string& pressmark, const Visit& visit) {
    if (settings.isFurther()) {
        expandFurther(settings, pressmark, visit);
    } else {
        expandPressmark(settings, visit);
    }
}
