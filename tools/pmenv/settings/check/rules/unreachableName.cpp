// Keys and sections that no reference can name.
#include "check/rule.h"

namespace {

bool isReachable(const std::string& name) { return name.find_first_of(" \t()") == std::string::npos; }

void checkSection(const SettingsLine& line, const SectionName& section, Report& report) {
    if (isReachable(section.name)) return;
    report.at(line.number, section.column, section.name.size(),
              "no reference can name the keys of section " + quoted(section.name) +
                  "; a name in a reference has no blanks and no parentheses");
}

void checkKey(const Entry& entry, Report& report) {
    if (isReachable(entry.ownKey())) return;
    report.atKey(entry, "no reference can name " + quoted(entry.key) +
                            "; a name in a reference has no blanks and no parentheses");
}

void checkUnreachableName(const SettingsText& settings, Report& report) {
    for (const SettingsLine& line : settings.lines()) {
        if (const auto section = line.section()) checkSection(line, *section, report);
    }
    for (const Entry& entry : settings.entries()) checkKey(entry, report);
}

}  // namespace

Rule unreachableNameRule() {
    return {"unreachable-name",
            Rule::Severity::Warning,
            "A key or a [section] with blanks or parentheses in its name. Programs can read it by its name, but a "
            "reference ends at the first of these.",
            "Write the name without blanks and parentheses, for example with dashes.",
            "[load engine]\nTHREADS = 8\n",
            "[load-engine]\nTHREADS = 8\n",
            checkUnreachableName};
}
