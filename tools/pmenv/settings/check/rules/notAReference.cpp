// What looks like a reference and is none.
#include "check/literalText.h"
#include "check/rule.h"
#include "settings.h"

namespace {

// "#{NAME}", which the library expands when it loads pressmark.ini, and nowhere else.
bool isInBraces(const std::string& written) {
    return written.size() > 3 && written[1] == '{' && written.back() == '}' &&
           written.find_first_of(" \t") == std::string::npos;
}

std::string textOf(const LiteralText& literal, const Entry& entry, const SettingsText& settings) {
    const std::string written = entry.value.substr(literal.position, literal.length);
    if (!settings.isFurther() || !isInBraces(written)) return literal.text;
    const std::string name = written.substr(2, written.size() - 3);
    return quoted(written) + " stays as it stands, braces are expanded in pressmark.ini only; write " +
           quoted(written.substr(0, 1) + "(" + name + ")");
}

// Texts that are too long to be read are not looked at.
void checkNotAReference(const Expansion& expansion, const SettingsText& settings, Report& report) {
    if (expansion.when == Expansion::When::Loading || !expansion.text) return;
    if (expansion.text->size() > kLongestExpansion) return;
    const Entry& entry = *expansion.entry;
    for (const LiteralText& literal : literalTexts(entry.value, *expansion.text)) {
        report.inValue(entry, literal.position, literal.length, textOf(literal, entry, settings));
    }
}

}  // namespace

Rule notAReferenceRule() {
    return {
        "not-a-reference",
        Rule::Severity::Warning,
        "What looks like a reference but does not fit the pattern, and so stays as it stands: a bracket that is not "
        "closed, blanks around the name, no name at all, an environment variable without brackets like $HOME, or "
        "braces in a file other than pressmark.ini. Texts for a shell, like $(date +%F), are left alone.",
        "Write $(NAME) for an environment variable and #(NAME) for a setting, without blanks.",
        "LOG_DIR = $HOME/log\n",
        "LOG_DIR = $(HOME)/log\n",
        checkNotAReference};
}
