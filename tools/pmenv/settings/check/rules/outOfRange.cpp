// A number that is too large or too small for the product.
#include "check/rule.h"

namespace {

void checkOutOfRange(const Expansion& expansion, const SettingsText& settings, Report& report) {
    const std::optional<KnownValue> known = knownValue(expansion, settings);
    const std::string problem = known ? rangeProblem(known->key, known->value, known->hidden) : "";
    if (!problem.empty()) report.atValue(*expansion.entry, problem);
}

}  // namespace

Rule outOfRangeRule() {
    return {
        "out-of-range",
        Rule::Severity::Error,
        "A number that is less than the least or more than the most value that the known keys give for the setting.",
        "Write a number in the range.",
        "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\nTIMEOUT_SEC = 0\n",
        "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\nTIMEOUT_SEC = 30\n",
        checkOutOfRange,
        Rule::DependsOn::Files,
        Rule::Needs::KnownKeys};
}
