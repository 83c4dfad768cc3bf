// A reference to an environment variable that is not set.
#include "check/references.h"
#include "check/rule.h"

namespace {

void checkUnsetVariable(const Expansion& expansion, const SettingsText& settings, Report& report) {
    for (const Reference& reference : expansion.references) {
        if (whatIsWrong(reference, expansion, settings) != Misreference::UnsetVariable) continue;
        const bool isSetting = settings.find(reference.name) != nullptr && !settings.isFurther();
        report.atReference(*expansion.entry, reference,
                           "the environment variable " + quoted(reference.name) + " is not set" +
                               (isSetting ? meansOther("setting", expansion.asWritten('#', reference.name))
                                          : settings.nearestVariables(reference.name)));
    }
}

}  // namespace

Rule unsetVariableRule() {
    return {"unset-variable",
            Rule::Severity::Warning,
            "A reference to a variable that the process environment does not have. It expands to nothing; the programs "
            "that read the file may have another environment than this command.",
            "Correct the name, set the variable for the programs that read the file, or write #(NAME) where a setting "
            "is meant.",
            "BASE = /opt/pm\nLOG_DIR = $(BASE)/log\n",
            "BASE = /opt/pm\nLOG_DIR = #(BASE)/log\n",
            checkUnsetVariable,
            Rule::DependsOn::Host};
}
