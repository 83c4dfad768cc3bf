// A quote at one end of a value only.
#include <algorithm>

#include "check/rule.h"

namespace {

// Not "a b" -c, whose quotes are paired.
bool isOneSided(const std::string& value) {
    if (value.empty() || std::count(value.begin(), value.end(), '"') % 2 == 0) return false;
    return value.front() == '"' || value.back() == '"';
}

void checkOneSidedQuote(const Entry& entry, const SettingsText& /*settings*/, Report& report) {
    if (!isOneSided(entry.value)) return;
    const std::size_t position = entry.value.front() == '"' ? 0 : entry.value.size() - 1;
    report.inValue(entry, position, 1, "a quote at one end only belongs to the value");
}

}  // namespace

Rule oneSidedQuoteRule() {
    return {"one-sided-quote",
            Rule::Severity::Warning,
            "A value with a quote at one of its ends. Quotes keep blanks and are removed where they surround the whole "
            "value; one alone is a part of it.",
            "Write the other quote, or remove this one.",
            "TITLE = \"nightly run\n",
            "TITLE = \"nightly run\"\n",
            checkOneSidedQuote};
}
