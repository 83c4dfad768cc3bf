// A setting that the product cannot do without.
#include "check/rule.h"

namespace {

void checkMissingKey(const SettingsText& settings, Report& report) {
    for (const KnownKey& key : settings.knownKeys()->all()) {
        if (!key.isRequired || settings.find(key.name) != nullptr) continue;
        report.at(1, 1, 1, quoted(key.name) + " is required, but not set; it is " + key.typeText());
    }
}

}  // namespace

Rule missingKeyRule() {
    return {"missing-key",
            Rule::Severity::Error,
            "A setting that the known keys call required is not in the file. This is told of the file's first line.",
            "Set it.",
            "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\n",
            "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\nTIMEOUT_SEC = 30\n",
            checkMissingKey,
            Rule::DependsOn::Files,
            Rule::Needs::KnownKeys};
}
