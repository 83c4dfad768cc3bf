// A key that is set more than once.
#include "check/rule.h"

namespace {

// LIST = #{LIST},more
bool takesOver(const Entry& entry) { return entry.value.find("#{" + entry.key + "}") != std::string::npos; }

std::string fateOf(const Entry& earlier) {
    const std::string value = "; its value from " + onLine(earlier.line);
    if (earlier.usedBy == 0) return value + " is lost";
    return value + " counts on " + onLine(earlier.usedBy) + ", which refers to it, and no more from here on";
}

void checkDuplicateKey(const Entry& entry, const SettingsText& settings, Report& report) {
    if (!entry.previous || (takesOver(entry) && !settings.isFurther())) return;
    report.atKey(entry, quoted(entry.key) + " is set again" + fateOf(settings.entries()[*entry.previous]));
}

}  // namespace

Rule duplicateKeyRule() {
    return {"duplicate-key",
            Rule::Severity::Warning,
            "A key that stands further up as well. The later value counts, the earlier one is lost, except for "
            "references in braces between the two.",
            "Remove one of the two lines, or let the later one take the earlier value over: LIST = #{LIST},more.",
            "LIST = a\nLIST = b\n",
            "LIST = a\nLIST = #{LIST},b\n",
            checkDuplicateKey};
}
