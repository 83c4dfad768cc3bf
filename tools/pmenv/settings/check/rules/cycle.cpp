// A value whose references lead back to itself.
#include "check/rule.h"

namespace {

std::string linkText(const ChainLink& link, const SettingsText& settings) {
    if (link.isVariable) return link.name + " (environment variable)";
    const Entry* const entry = settings.isFurther() ? nullptr : settings.find(link.name);
    return entry == nullptr ? link.name : link.name + " (" + onLine(entry->line) + ")";
}

// "A (line 1) -> B (line 2) -> A (line 1)", the middle of a long chain left out.
std::string chainText(const std::vector<ChainLink>& chain, const SettingsText& settings) {
    constexpr std::size_t kShownAtEachEnd = 6;
    std::string text = linkText(chain[0], settings);
    for (std::size_t i = 1; i < chain.size(); ++i) {
        if (i == kShownAtEachEnd && chain.size() > 2 * kShownAtEachEnd) {
            const std::size_t skipped = chain.size() - 2 * kShownAtEachEnd;
            text += " -> ... " + std::to_string(skipped) + " more ...";
            i += skipped;
        }
        text += " -> " + linkText(chain[i], settings);
    }
    return text;
}

// Where the way into the cycle begins; the whole value when that is not written in it.
void reportAt(const Expansion& expansion, const std::string& text, Report& report) {
    const ChainLink& first = expansion.chain[1];
    const std::string written = expansion.asWritten(first.isVariable ? '$' : '#', first.name);
    const std::size_t position = expansion.entry->value.find(written);
    if (position == std::string::npos) return report.atValue(*expansion.entry, text);
    report.inValue(*expansion.entry, position, written.size(), text);
}

void checkCycle(const Expansion& expansion, const SettingsText& settings, Report& report) {
    if (expansion.failure != KRSResolveFailure::Cycle) return;
    const bool isLoading = expansion.when == Expansion::When::Loading;
    reportAt(expansion,
             "the references form a cycle: " + chainText(expansion.chain, settings) +
                 (isLoading ? "; the setting is left out" : "; the setting cannot be read"),
             report);
}

}  // namespace

Rule cycleRule() {
    return {"cycle",
            Rule::Severity::Error,
            "A value whose references lead back to itself. In braces it is left out when the file is loaded, in "
            "parentheses it cannot be read.",
            "Give one of the settings in the chain a value that does not lead back.",
            "BASE = #(ROOT)/pm\nROOT = #(BASE)/..\n",
            "BASE = #(ROOT)/pm\nROOT = /opt\n",
            checkCycle};
}
