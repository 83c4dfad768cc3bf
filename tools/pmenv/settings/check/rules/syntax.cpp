// A line that the library refuses.
#include "check/rule.h"

namespace {

void checkSyntax(const SettingsLine& line, const SettingsText& /*settings*/, Report& report) {
    if (!line.refusal.empty()) report.at(line.number, line.refusalColumn, 1, line.refusal);
}

}  // namespace

Rule syntaxRule() {
    return {
        "syntax",
        Rule::Severity::Error,
        "A line that is neither empty nor a comment, [section] or KEY = value. The library refuses a file with such "
        "a line as a whole; the other lines are checked as if it were not there.",
        "Write KEY = value or [section], or put ; in front to make the line a comment.",
        "PORT 8080\n",
        "PORT = 8080\n",
        checkSyntax};
}
