// A reference in braces to what the load has not come to yet.
#include "check/references.h"
#include "check/rule.h"

namespace {

std::string textOf(const Reference& reference, const Expansion& expansion, const SettingsText& settings) {
    const Entry& definition = *settings.find(reference.name);
    const std::string name = "the setting " + quoted(reference.name);
    if (&definition == expansion.entry) return name + " refers to itself, which is not defined above";
    return name + " is defined only on " + onLine(definition.line) + " and expands to nothing here; write " +
           quoted("#(" + reference.name + ")") + " or move it up";
}

void checkUsedBeforeDefined(const Expansion& expansion, const SettingsText& settings, Report& report) {
    for (const Reference& reference : expansion.references) {
        if (whatIsWrong(reference, expansion, settings) != Misreference::TooEarly) continue;
        report.atReference(*expansion.entry, reference, textOf(reference, expansion, settings));
    }
}

}  // namespace

Rule usedBeforeDefinedRule() {
    return {
        "used-before-defined",
        Rule::Severity::Error,
        "A reference #{NAME} to a setting that stands further down. References in braces are expanded while the file "
        "is loaded, and see only what stands above.",
        "Move the setting that is referred to up, or write #(NAME), which is expanded when the value is read.",
        "LOG_DIR = #{BASE}/log\nBASE = /opt/pm\n",
        "LOG_DIR = #(BASE)/log\nBASE = /opt/pm\n",
        checkUsedBeforeDefined};
}
