// Names that only differ by upper and lower case.
#include <algorithm>
#include <cctype>
#include <unordered_map>

#include "check/rule.h"

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return text;
}

void checkDiffersByCase(const SettingsText& settings, Report& report) {
    std::unordered_map<std::string, const Entry*> firsts;
    for (const Entry& entry : settings.entries()) {
        const auto [first, isNew] = firsts.try_emplace(lower(entry.key), &entry);
        if (isNew || entry.previous || first->second->key == entry.key) continue;
        report.atKey(entry, quoted(entry.key) + " and " + quoted(first->second->key) + " on " +
                                onLine(first->second->line) + " differ by case only and are two settings");
    }
}

}  // namespace

Rule differsByCaseRule() {
    return {
        "differs-by-case",
        Rule::Severity::Warning,
        "Keys that differ by upper and lower case only. They are two settings, and a reference finds the one that is "
        "written as it is.",
        "Remove one of the two if both mean the same, else rename one.",
        "LogDir = /var/log\nLOGDIR = /tmp\n",
        "LogDir = /var/log\nTEMPDIR = /tmp\n",
        checkDiffersByCase};
}
