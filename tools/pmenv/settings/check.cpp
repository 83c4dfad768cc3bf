#include "check.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <tuple>
#include <unordered_map>

#include <sys/mman.h>
#include <unistd.h>

#include "EnvSettings.h"
#include "entryExpansion.h"
#include "failure.h"
#include "krenv.h"
#include "krs.h"
#include "libraryLog.h"
#include "literalText.h"
#include "nearest.h"
#include "settings.h"

namespace {

// --- loading --------------------------------------------------------------------------------------------------------

// A file that has no name and vanishes with this object.
class NamelessFile {
public:
    explicit NamelessFile(const std::string& text) : descriptor_(memfd_create("pmenv-check", MFD_CLOEXEC)) {
        for (std::size_t done = 0; descriptor_ >= 0 && done < text.size();) {
            const ssize_t count = write(descriptor_, text.data() + done, text.size() - done);
            if (count > 0) done += static_cast<std::size_t>(count);
            if (count < 0 && errno != EINTR) break;
        }
    }
    ~NamelessFile() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    NamelessFile(const NamelessFile&) = delete;
    NamelessFile& operator=(const NamelessFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

// The library's settings for as long as this object lives.
class LoadedSettings {
public:
    LoadedSettings(const std::string& text, KRSLoadObserver& observer) {
        const LogPause quiet;  // what fails is a finding
        const NamelessFile file(text);
        try {
            loaded_ = KRELoadIniFile(file.path().c_str(), &observer) != 0;
        } catch (const WorkLimit::Exceeded&) {
            complete_ = false;
        }
        table_ = nEnvSettings::gPressmarkIniTable();
    }
    ~LoadedSettings() { KRSDestroyTable(table_); }
    LoadedSettings(const LoadedSettings&) = delete;
    LoadedSettings& operator=(const LoadedSettings&) = delete;

    bool loaded() const { return loaded_; }
    /// False when the observer ended the load.
    bool complete() const { return complete_; }
    int table() const { return table_; }

private:
    bool loaded_ = false;
    bool complete_ = true;
    int table_ = 0;
};

// --- texts ----------------------------------------------------------------------------------------------------------

std::string quoted(const std::string& text) {
    constexpr std::size_t kLongest = 80;
    return "'" + (text.size() <= kLongest ? text : text.substr(0, kLongest) + "...") + "'";
}

std::string onLine(int line) { return "line " + std::to_string(line); }

const char* limitText(KRSResolveFailure why) {
    switch (why) {
        case KRSResolveFailure::Levels:
            return "512 nested levels";
        case KRSResolveFailure::Substitutions:
            return "65,536 references";
        case KRSResolveFailure::TextLength:
            return "1 MiB of text";
        default:
            return "256 Mi characters of searching";
    }
}

std::size_t writtenKeyLength(std::string_view line, std::size_t column) {
    return line.find_last_not_of(" \t", line.find('=') - 1) + 2 - column;
}

bool isSetVariable(const std::string& name) { return std::getenv(name.c_str()) != nullptr; }

std::vector<std::string> variableNames() {
    std::vector<std::string> names;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        names.emplace_back(text.substr(0, text.find('=')));
    }
    return names;
}

// --- checking -------------------------------------------------------------------------------------------------------

class Checker {
public:
    explicit Checker(const std::string& file) { checked_.file = file; }

    CheckedFile check() {
        readLines();
        checkKeys();
        checkValues();
        checkRelease();
        const auto place = [](const CheckFinding& finding) {
            return std::make_tuple(finding.line, finding.column, finding.rule);
        };
        std::stable_sort(checked_.findings.begin(), checked_.findings.end(),
                         [&](const CheckFinding& a, const CheckFinding& b) { return place(a) < place(b); });
        return std::move(checked_);
    }

private:
    struct Entry {
        std::string key;
        std::string value;
        int line;
        std::size_t keyColumn;
        std::size_t keyLength;  // as written, without its section
        std::size_t valueColumn;
        bool leftOut = false;
    };
    // A value that the load has changed may hold references that stand in other settings and are told of there.
    enum class When { Loading, Reading, ReadingReplaced };

    void add(Rule rule, int line, std::size_t column, std::size_t length, std::string text) {
        checked_.findings.push_back({rule, line, column, length, std::move(text)});
    }
    void addAtValue(Rule rule, const Entry& entry, std::string text) {
        add(rule, entry.line, entry.valueColumn, entry.value.size(), std::move(text));
    }
    void addAtReference(Rule rule, const Entry& entry, const std::string& written, std::string text) {
        const std::size_t position = entry.value.find(written);
        if (position == std::string::npos) return addAtValue(rule, entry, std::move(text));
        add(rule, entry.line, entry.valueColumn + position, written.size(), std::move(text));
    }

    // Reading, with the syntax rule.
    void readLines() {
        const int read = KRSReadLines(checked_.file.c_str(), [this](const KRSLine& line) {
            checked_.lines.emplace_back(line.text);
            if (line.error != nullptr) {
                add(Rule::Syntax, line.number, line.errorColumn, 1, line.error);
            } else if (line.key != nullptr) {
                entries_.push_back({line.key, line.value, line.number, line.keyColumn,
                                    writtenKeyLength(line.text, line.keyColumn), line.valueColumn});
            }
            loadable_.append(line.error == nullptr ? line.text : "").append("\n");
        });
        if (read == 0) throw Failure(std::string("cannot check the settings: ") + KRSLoadError());
    }

    void checkKeys() {
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            const Entry& entry = entries_[i];
            const auto [known, isNew] = lastOfKey_.try_emplace(entry.key, i);
            if (isNew) continue;
            const Entry& earlier = entries_[known->second];
            known->second = i;
            if (entry.value.find("#{" + entry.key + "}") != std::string::npos) continue;  // LIST = #{LIST},more
            add(Rule::DuplicateKey, entry.line, entry.keyColumn, entry.keyLength,
                quoted(entry.key) + " is set again; its value from " + onLine(earlier.line) + " is lost");
        }
    }

    void checkValues() {
        WorkLimit work(entries_.size());
        ExpansionWatch watch(work);
        const LoadedSettings settings(loadable_, watch);
        if (!settings.loaded() && settings.complete()) {
            throw Failure(checked_.file + ": cannot be loaded for checking: " + KRSLoadError());
        }
        const std::vector<EntryExpansion>& loaded = watch.loaded();
        for (std::size_t i = 0; i < loaded.size(); ++i) entries_[i].leftOut = loaded[i].failure.has_value();
        for (std::size_t i = 0; i < loaded.size(); ++i) addFindings(entries_[i], loaded[i], When::Loading);
        if (!settings.complete()) return addTooMuchWork(entries_[loaded.size()]);
        checkReading(settings.table(), watch);
    }

    // Every value that a program could ask for.
    void checkReading(int table, ExpansionWatch& watch) {
        auto entry = entries_.begin();
        KRSEntry stored{};
        for (std::size_t i = 0; KRSGetEntry(table, i, &stored); ++i) {
            while (entry->line != stored.line) ++entry;
            if (!stored.inForce) continue;
            try {
                checkReading(*entry, stored.value, watch);
            } catch (const WorkLimit::Exceeded&) {
                return addTooMuchWork(*entry);
            }
        }
    }

    void checkReading(const Entry& entry, const char* stored, ExpansionWatch& watch) {
        AddDelSet set;
        set.observer = &watch;
        RWCString text(stored);
        watch.begun(entry.key.c_str(), stored);
        const bool expanded = KRSRuntimeResolve(set, text);
        addFindings(entry, watch.take(), entry.value == stored ? When::Reading : When::ReadingReplaced);
        if (!expanded) return;
        if (text.length() > kLongestExpansion) {
            return addAtValue(Rule::Limit, entry,
                              "the expanded value has " + std::to_string(text.length()) + " characters, the limit is " +
                                  std::to_string(kLongestExpansion));
        }
        for (const LiteralText& literal : literalTexts(entry.value, {text.data(), text.length()})) {
            add(Rule::NotAReference, entry.line, entry.valueColumn + literal.position, literal.length, literal.text);
        }
    }

    void addFindings(const Entry& entry, const EntryExpansion& expansion, When when) {
        std::size_t from = 0;
        for (const EmptyReference& reference : expansion.empty) addEmpty(entry, reference, when, &from);
        if (!expansion.failure) return;
        const std::string outcome =
            when == When::Loading ? "; the setting is left out" : "; the setting cannot be read";
        if (*expansion.failure == KRSResolveFailure::Cycle) {
            addAtReference(Rule::Cycle, entry, writtenAs(expansion.chain[1], when),
                           "the references lead in a circle: " + chainText(expansion.chain) + outcome);
        } else {
            addAtValue(Rule::Limit, entry,
                       std::string("expanding the value takes more than ") + limitText(*expansion.failure) + outcome);
        }
    }

    static std::string writtenAs(const ChainLink& link, When when) {
        const std::string bracketed = when == When::Loading ? "{" + link.name + "}" : "(" + link.name + ")";
        return (link.isVariable ? '$' : '#') + bracketed;
    }

    // "A (line 1) -> B (line 2) -> A (line 1)", the middle of a long chain left out.
    std::string chainText(const std::vector<ChainLink>& chain) const {
        constexpr std::size_t kShownAtEachEnd = 6;
        std::string text = linkText(chain[0]);
        for (std::size_t i = 1; i < chain.size(); ++i) {
            if (i == kShownAtEachEnd && chain.size() > 2 * kShownAtEachEnd) {
                const std::size_t skipped = chain.size() - 2 * kShownAtEachEnd;
                text += " -> ... " + std::to_string(skipped) + " more ...";
                i += skipped;
            }
            text += " -> " + linkText(chain[i]);
        }
        return text;
    }

    std::string linkText(const ChainLink& link) const {
        if (link.isVariable) return link.name + " (process variable)";
        const auto known = lastOfKey_.find(link.name);
        return known == lastOfKey_.end() ? link.name : link.name + " (" + onLine(entries_[known->second].line) + ")";
    }

    // Where the reference is written in the entry's value, searched from `*from` on: they come from left to right. For
    // one that stands elsewhere or nowhere, the whole value is meant.
    void addEmpty(const Entry& entry, const EmptyReference& reference, When when, std::size_t* from) {
        const auto [rule, text] = emptyReferenceText(entry, reference, when);
        if (!reference.variable.empty()) {
            return addAtValue(rule, entry, text + " (in the value of the process variable " + reference.variable + ")");
        }
        const std::size_t position = entry.value.find(reference.written, *from);
        if (position == std::string::npos) {
            if (when == When::ReadingReplaced) return;
            return addAtValue(rule, entry,
                              text + " (the reference " + quoted(reference.written) + " forms while it is expanded)");
        }
        *from = position + reference.written.size();
        add(rule, entry.line, entry.valueColumn + position, reference.written.size(), text);
    }

    std::pair<Rule, std::string> emptyReferenceText(const Entry& entry, const EmptyReference& reference, When when) {
        if (when == When::Loading && reference.name.find('}') != std::string::npos) {
            return {Rule::SwallowedReference, quoted(reference.written) + " is one reference, to the name " +
                                                  quoted(reference.name) +
                                                  "; part the two by a blank or write them in parentheses"};
        }
        return reference.isVariable ? unsetVariable(reference, when) : undefinedSetting(entry, reference, when);
    }

    std::pair<Rule, std::string> unsetVariable(const EmptyReference& reference, When when) {
        const std::string text = "the process variable " + quoted(reference.name) + " is not set";
        const bool isSetting = lastOfKey_.count(reference.name) != 0;
        return {Rule::UnsetVariable, text + (isSetting ? meansOther("setting", '#', reference.name, when)
                                                       : nearest(reference.name, variableNames_))};
    }

    std::pair<Rule, std::string> undefinedSetting(const Entry& entry, const EmptyReference& reference, When when) {
        const std::string name = quoted(reference.name);
        const auto known = lastOfKey_.find(reference.name);
        if (known == lastOfKey_.end()) {
            return {Rule::UndefinedSetting,
                    "the setting " + name + " is not defined" + whatWasMeant(entry, reference.name, when)};
        }
        const Entry& definition = entries_[known->second];
        if (&definition == &entry) {
            return {Rule::UsedBeforeDefined, "the setting " + name + " refers to itself, which is not defined above"};
        }
        if (when == When::Loading && definition.line > entry.line && !definition.leftOut) {
            return {Rule::UsedBeforeDefined, "the setting " + name + " is defined only on " + onLine(definition.line) +
                                                 " and expands to nothing here; write " +
                                                 quoted("#(" + reference.name + ")") + " or move it up"};
        }
        return {Rule::UndefinedSetting,
                "the setting " + name + " on " + onLine(definition.line) + " is left out, its references fail"};
    }

    // A reference names the whole key, also below the section that it is in.
    std::string whatWasMeant(const Entry& entry, const std::string& name, When when) {
        const std::string inSection = entry.key.substr(0, entry.key.size() - entry.keyLength) + name;
        if (lastOfKey_.count(inSection) != 0) return didYouMean({inSection});
        return isSetVariable(name) ? meansOther("process variable", '$', name, when) : nearestSettings(name);
    }

    static std::string meansOther(const char* what, char sign, const std::string& name, When when) {
        const std::string bracketed = when == When::Loading ? "{" + name + "}" : "(" + name + ")";
        return std::string("; did you mean the ") + what + ", " + quoted(sign + bracketed) + "?";
    }

    std::string nearestSettings(const std::string& name) {
        if (settingNames_.empty()) {
            for (const auto& [key, entry] : lastOfKey_) settingNames_.push_back(key);
        }
        return nearest(name, settingNames_);
    }

    // Comparing names takes long in a large file, so only the first unknown names get suggestions there.
    std::string nearest(const std::string& name, const std::vector<std::string>& known) {
        if (comparisonsLeft_ < known.size()) return {};
        comparisonsLeft_ -= known.size();
        return didYouMean(nearestNames(name, known));
    }

    void addTooMuchWork(const Entry& entry) {
        addAtValue(Rule::TooMuchWork, entry,
                   "expanding the values takes too much work; from here on they are not checked");
    }

    void checkRelease() {
        const std::size_t slash = checked_.file.rfind('/');
        const std::string name = slash == std::string::npos ? checked_.file : checked_.file.substr(slash + 1);
        if (name != "pressmark.ini") return;
        for (const char* const key : {"KR_VERSION", "KR_BUILD"}) {
            if (lastOfKey_.count(key) == 0) add(Rule::MissingRelease, 1, 1, 1, std::string(key) + " is not set");
        }
    }

    CheckedFile checked_;
    std::string loadable_;  // the file without the lines that the library refuses
    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::size_t> lastOfKey_;
    std::vector<std::string> settingNames_;  // filled when they are needed
    const std::vector<std::string> variableNames_ = variableNames();
    std::size_t comparisonsLeft_ = 500'000;
};

}  // namespace

std::string CheckedFile::sourceOf(const CheckFinding& finding) const {
    const auto index = static_cast<std::size_t>(finding.line) - 1;
    return index < lines.size() ? lines[index] : "";
}

CheckedFile checkFile(const std::string& file) { return Checker(file).check(); }
