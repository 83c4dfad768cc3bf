#include "check/check.h"

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>
#include <utility>

#include "failure.h"
#include "knownKeys/chosenKeys.h"
#include "knownKeys/knownSecrets.h"

namespace {

// The rules at work on one file.
class Check {
public:
    Check(SettingsText& settings, const std::vector<std::string>& ignored) : settings_(settings) {
        for (const Rule& rule : allRules()) {
            const bool isIgnored = std::find(ignored.begin(), ignored.end(), rule.name) != ignored.end();
            const bool lacksKeys = rule.needs == Rule::Needs::KnownKeys && settings.knownKeys() == nullptr;
            if (!isIgnored && !lacksKeys) rules_.push_back(&rule);
        }
    }

    // Entries come last, when it is known what the load made of them.
    std::vector<CheckFinding> run(const std::string& pressmark) {
        for (const SettingsLine& line : settings_.lines()) apply<LineCheck>(line);
        expandAll(settings_, pressmark, [this](const Expansion& expansion) { apply<ExpansionCheck>(expansion); });
        for (const Entry& entry : settings_.entries()) apply<EntryCheck>(entry);
        apply<FileCheck>();
        sort();
        takeAllowed();
        sort();
        return std::move(findings_);
    }
    std::size_t allowed() const { return allowed_; }

private:
    template <class Kind, class... Subject>
    void apply(const Subject&... subject) {
        for (const Rule* const rule : rules_) {
            const Kind* const check = std::get_if<Kind>(&rule->check);
            if (check == nullptr) continue;
            Report report(settings_, *rule, findings_);
            (*check)(subject..., settings_, report);
        }
    }

    // Each comment allows one finding. What a comment allows in vain is a finding itself.
    void takeAllowed() {
        std::vector<Allowance> allowances = allowancesIn(settings_.lines());
        std::map<std::pair<int, std::string>, std::vector<Allowance*>> open;
        for (auto allowance = allowances.rbegin(); allowance != allowances.rend(); ++allowance) {
            allowance->isNeedless = isDecidedByFiles(allowance->rule);
            open[{allowance->allowedLine, allowance->rule}].push_back(&*allowance);
        }
        const auto isAllowed = [&](const CheckFinding& finding) {
            const auto found = open.find({finding.line, finding.rule->name});
            if (found == open.end() || found->second.empty()) return false;
            found->second.back()->isNeedless = false;
            found->second.pop_back();
            return true;
        };
        const auto end = std::remove_if(findings_.begin(), findings_.end(), isAllowed);
        allowed_ = static_cast<std::size_t>(findings_.end() - end);
        findings_.erase(end, findings_.end());
        for (const Allowance& allowance : allowances) apply<AllowanceCheck>(allowance);
    }

    // The rule was applied, and would have found nothing on another host either.
    bool isDecidedByFiles(const std::string& name) const {
        return std::any_of(rules_.begin(), rules_.end(), [&](const Rule* rule) {
            return rule->name == name && rule->dependsOn == Rule::DependsOn::Files;
        });
    }

    void sort() {
        const auto place = [](const CheckFinding& finding) {
            return std::make_tuple(finding.line, finding.column, finding.rule);
        };
        std::stable_sort(findings_.begin(), findings_.end(),
                         [&](const CheckFinding& a, const CheckFinding& b) { return place(a) < place(b); });
    }

    SettingsText& settings_;
    std::vector<const Rule*> rules_;
    std::vector<CheckFinding> findings_;
    std::size_t allowed_ = 0;
};

// What a program would read for `key`; none when there is no such setting or it cannot be read.
std::optional<std::string> readValue(SettingsText& settings, const std::string& pressmark, const std::string& key) {
    const Entry* const entry = settings.find(key);
    std::optional<std::string> value;
    if (entry == nullptr) return value;
    expandAll(settings, pressmark, [&](const Expansion& expansion) {
        if (expansion.entry == entry && expansion.when == Expansion::When::Reading) value = expansion.text;
    });
    return value;
}

// Those that PMENV_KEYS names. Where others are given, they only tell what is secret, and need not be right.
std::optional<KnownKeys> namedKeys(SettingsText& settings, const CheckRequest& request) {
    try {
        return keysOfSetting(settings.name(), readValue(settings, request.pressmark, kKeysSetting));
    } catch (const Failure&) {
        if (request.keys == nullptr) throw;
        return std::nullopt;
    }
}

Secrets secretsWith(Secrets secrets, const KnownKeys* keys) {
    return keys != nullptr ? withKnownKeys(std::move(secrets), *keys) : secrets;
}

}  // namespace

const std::string& CheckedFile::sourceOf(const CheckFinding& finding) const {
    static const std::string none;
    const auto index = static_cast<std::size_t>(finding.line) - 1;
    return index < lines.size() ? lines[index].text : none;
}

HiddenParts CheckedFile::hiddenOf(const CheckFinding& finding) const {
    const auto index = static_cast<std::size_t>(finding.line) - 1;
    return index < lines.size() ? lines[index].hidden : HiddenParts();
}

CheckedFile checkFile(const CheckRequest& request) {
    const std::string& name = request.name.empty() ? request.path : request.name;
    const FileKind kind = request.pressmark.empty() ? FileKind::Pressmark : FileKind::Further;
    const Secrets secrets = secretsWith(request.secrets, request.keys);
    SettingsText settings(request.path, name, kind, secrets);
    if (std::optional<KnownKeys> named = namedKeys(settings, request)) {
        settings = SettingsText(request.path, name, kind, withKnownKeys(secrets, *named));
        settings.setKnownKeys(std::move(named));
    }
    if (request.keys != nullptr) settings.setKnownKeys(*request.keys);
    Check check(settings, request.ignored);
    std::vector<CheckFinding> findings = check.run(request.pressmark);
    return {name, settings.takeLines(), std::move(findings), check.allowed()};
}
