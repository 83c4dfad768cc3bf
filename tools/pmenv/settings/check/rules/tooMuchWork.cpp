// A file that keeps every program that loads it busy.
#include "check/rule.h"

namespace {

void checkTooMuchWork(const Expansion& expansion, const SettingsText& /*settings*/, Report& report) {
    if (!expansion.gaveUp) return;
    report.atValue(*expansion.entry, "expanding the values takes too much work; from here on they are not checked");
}

}  // namespace

Rule tooMuchWorkRule() {
    return {"too-much-work",
            Rule::Severity::Error,
            "The values of the file take so much expanding that checking has been cut short. A file like this keeps "
            "every program that loads it busy, or is made to.",
            "Look for values that refer to others twice or more, level upon level, and take levels out.",
            nullptr,
            nullptr,
            checkTooMuchWork};
}
