// A value that is not of the type that the product expects.
#include "check/rule.h"

namespace {

void checkWrongType(const Expansion& expansion, const SettingsText& settings, Report& report) {
    const std::optional<KnownValue> known = knownValue(expansion, settings);
    const std::string problem = known ? typeProblem(known->key, known->value, known->hidden) : "";
    if (!problem.empty()) report.atValue(*expansion.entry, problem);
}

}  // namespace

Rule wrongTypeRule() {
    return {"wrong-type",
            Rule::Severity::Error,
            "A value that is not what the known keys say of the setting: no number, neither yes nor no, none of the "
            "values to choose from, or an empty path. Values are looked at as programs read them, with their "
            "references expanded. A number is written with decimal digits, without its unit.",
            "Write a value of the type; 'pmenv list --help-texts' shows the types.",
            "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\nTIMEOUT_SEC = 30s\n",
            "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\nTIMEOUT_SEC = 30\n",
            checkWrongType,
            Rule::DependsOn::Files,
            Rule::Needs::KnownKeys};
}
