// A setting that the product does not know.
#include "check/rule.h"

namespace {

void checkUnknownKey(const Entry& entry, const SettingsText& settings, Report& report) {
    if (entry.previous || entry.key == kKeysSetting || settings.knownKeys()->find(entry.key) != nullptr) return;
    report.atKey(entry,
                 quoted(entry.key) + " is no setting that the product knows" + settings.nearestKnownKeys(entry.key));
}

}  // namespace

Rule unknownKeyRule() {
    return {"unknown-key",
            Rule::Severity::Warning,
            "A setting that is not among the known keys. Programs do not read it; it may be mistyped, or stand below "
            "the wrong [section]. A setting that only others refer to is reported as well.",
            "Correct the name, remove the setting, or describe it in the file of known keys.",
            "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\nTIMEOUT = 30\n",
            "; http.TIMEOUT_SEC is known: required, an integer from 1 to 3600\n[http]\nTIMEOUT_SEC = 30\n",
            checkUnknownKey,
            Rule::DependsOn::Files,
            Rule::Needs::KnownKeys};
}
