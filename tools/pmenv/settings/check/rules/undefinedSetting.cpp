// A reference to a setting that does not exist.
#include <cstdlib>

#include "check/references.h"
#include "check/rule.h"

namespace {

// A reference names the whole key, also below the section that it is in.
std::string whatWasMeant(const std::string& name, const Expansion& expansion, const SettingsText& settings) {
    const std::string inSection = expansion.entry->sectionPrefix() + name;
    if (!settings.isFurther() && settings.find(inSection) != nullptr)
        return "; did you mean " + quoted(inSection) + "?";
    const bool isVariable = std::getenv(name.c_str()) != nullptr;
    return isVariable ? meansOther("environment variable", expansion.asWritten('$', name))
                      : settings.nearestSettings(name);
}

std::string textOf(const std::string& name, const Expansion& expansion, const SettingsText& settings) {
    const std::string setting = "the setting " + quoted(name);
    const Entry* const entry = settings.find(name);
    if (entry == nullptr) return setting + " is not defined" + whatWasMeant(name, expansion, settings);
    if (!settings.isFurther()) return setting + " on " + onLine(entry->line) + " is left out, its references fail";
    return setting + " is not defined in pressmark.ini; the one on " + onLine(entry->line) +
           " is not meant, references never mean this file itself";
}

void checkUndefinedSetting(const Expansion& expansion, const SettingsText& settings, Report& report) {
    for (const Reference& reference : expansion.references) {
        if (whatIsWrong(reference, expansion, settings) != Misreference::UndefinedSetting) continue;
        report.atReference(*expansion.entry, reference, textOf(reference.name, expansion, settings));
    }
}

}  // namespace

Rule undefinedSettingRule() {
    return {"undefined-setting",
            Rule::Severity::Error,
            "A reference to a setting that the file does not define. It expands to nothing. Below a [section] a "
            "reference still names the whole key, section.KEY.",
            "Correct the name, or define the setting.",
            "BASE = /opt/pm\nLOG_DIR = #(BSAE)/log\n",
            "BASE = /opt/pm\nLOG_DIR = #(BASE)/log\n",
            checkUndefinedSetting};
}
