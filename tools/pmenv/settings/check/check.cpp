#include "check/check.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace {

// The rules at work on one file.
class Check {
public:
    Check(SettingsText& settings, const std::vector<std::string>& ignored) : settings_(settings) {
        for (const Rule& rule : allRules()) {
            if (std::find(ignored.begin(), ignored.end(), rule.name) == ignored.end()) rules_.push_back(&rule);
        }
    }

    // Entries come last, when it is known what the load made of them.
    std::vector<CheckFinding> run(const std::string& pressmark) {
        for (const SettingsLine& line : settings_.lines()) apply<LineCheck>(line);
        expandAll(settings_, pressmark, [this](const Expansion& expansion) { apply<ExpansionCheck>(expansion); });
        for (const Entry& entry : settings_.entries()) apply<EntryCheck>(entry);
        apply<FileCheck>();
        sort();
        return std::move(findings_);
    }

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
};

}  // namespace

std::string CheckedFile::sourceOf(const CheckFinding& finding) const {
    const auto index = static_cast<std::size_t>(finding.line) - 1;
    return index < lines.size() ? lines[index].text : "";
}

CheckedFile checkFile(const CheckRequest& request) {
    const std::string& name = request.name.empty() ? request.path : request.name;
    SettingsText settings(request.path, name, request.pressmark.empty() ? FileKind::Pressmark : FileKind::Further);
    std::vector<CheckFinding> findings = Check(settings, request.ignored).run(request.pressmark);
    return {name, settings.takeLines(), std::move(findings)};
}
