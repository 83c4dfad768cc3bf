// A pressmark.ini that does not say which release it belongs to.
#include "check/rule.h"

namespace {

void checkMissingRelease(const SettingsText& settings, Report& report) {
    const std::string& name = settings.name();
    if (name.substr(name.rfind('/') + 1) != "pressmark.ini") return;
    for (const char* const key : {"KR_VERSION", "KR_BUILD"}) {
        if (settings.find(key) == nullptr) report.at(1, 1, 1, std::string(key) + " is not set");
    }
}

}  // namespace

Rule missingReleaseRule() {
    return {"missing-release",
            Rule::Severity::Warning,
            "A pressmark.ini without KR_VERSION or KR_BUILD. The start-up report of every program shows <NullChar*> "
            "instead. Files of other names are not expected to have them.",
            "Set KR_VERSION and KR_BUILD.",
            "KR_VERSION = 12\n",
            "KR_VERSION = 12\nKR_BUILD = 345\n",
            checkMissingRelease};
}
