// A reference in a further settings file that seems to mean the file itself.
#include "check/rule.h"

namespace {

// KEY = #(KEY)/more is no mistake: who writes it knows that the other file is meant.
void checkOwnKey(const Expansion& expansion, const SettingsText& settings, Report& report) {
    if (!settings.isFurther()) return;
    for (const Reference& reference : expansion.references) {
        const Entry* const own = reference.isVariable ? nullptr : settings.find(reference.name);
        if (own == nullptr || !reference.isDefined || own->key == expansion.entry->key) continue;
        report.atReference(*expansion.entry, reference,
                           "the setting " + quoted(reference.name) + " of pressmark.ini is meant, not the one on " +
                               onLine(own->line));
    }
}

}  // namespace

Rule ownKeyRule() {
    return {"own-key",
            Rule::Severity::Warning,
            "A reference in a file of --file to a key that the file itself has as well. References always mean "
            "pressmark.ini. Where that has no such setting, it is an error of undefined-setting.",
            "Rename one of the two keys, so that nobody takes one for the other.",
            "KR_VERSION = 7\nTITLE = release #(KR_VERSION)\n",
            "ENGINE_VERSION = 7\nTITLE = release #(KR_VERSION)\n",
            checkOwnKey};
}
