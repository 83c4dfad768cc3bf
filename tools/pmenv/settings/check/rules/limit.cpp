// A value that is more than the library allows.
#include "check/rule.h"
#include "settings.h"

namespace {

const char* limitText(KRSResolveFailure why) {
    switch (why) {
        case KRSResolveFailure::Levels:
            return "512 nested levels";
        case KRSResolveFailure::Substitutions:
            return "65,536 references";
        case KRSResolveFailure::TextLength:
            return "1 MiB of text";
        default:
            return "256 Mi characters of searching";
    }
}

std::string lengthText(std::size_t length) {
    return std::to_string(length) + " characters, the limit is " + std::to_string(kLongestExpansion);
}

const SettingsLine& lineOf(const Entry& entry, const SettingsText& settings) {
    return settings.lines()[static_cast<std::size_t>(entry.line) - 1];
}

void checkFailure(const Expansion& expansion, Report& report) {
    const bool isLoading = expansion.when == Expansion::When::Loading;
    report.atValue(*expansion.entry, std::string("expanding the value takes more than ") +
                                         limitText(*expansion.failure) +
                                         (isLoading ? "; the setting is left out" : "; the setting cannot be read"));
}

// Of a very long line only the beginning was expanded, which tells nothing but that it is too long.
void checkLimit(const Expansion& expansion, const SettingsText& settings, Report& report) {
    if (expansion.failure == KRSResolveFailure::Cycle) return;
    const SettingsLine& line = lineOf(*expansion.entry, settings);
    const bool isReading = expansion.when == Expansion::When::Reading;
    if (!line.isWhole()) {
        const std::size_t length = line.length - expansion.entry->valueColumn + 1;
        if (isReading || expansion.failure) report.atValue(*expansion.entry, "the value has " + lengthText(length));
    } else if (expansion.failure) {
        checkFailure(expansion, report);
    } else if (isReading && expansion.text && expansion.text->size() > kLongestExpansion) {
        report.atValue(*expansion.entry, "the expanded value has " + lengthText(expansion.text->size()));
    }
}

}  // namespace

Rule limitRule() {
    return {
        "limit",
        Rule::Severity::Error,
        "A value that takes more than the library allows: 2047 characters when it is expanded, 1 MiB of text on the "
        "way, 512 nested levels, 65,536 references or 256 Mi characters of searching. It is left out or cannot be "
        "read, like a cycle.",
        "Shorten the value, or the values that it refers to.",
        "A = 0123456789abcdef\nB = #(A)#(A)#(A)#(A)\nC = #(B)#(B)#(B)#(B)\nD = #(C)#(C)#(C)#(C)\nE = #(D)#(D)\n",
        "A = 0123456789abcdef\nB = #(A)#(A)#(A)#(A)\nC = #(B)#(B)#(B)#(B)\nD = #(C)#(C)#(C)#(C)\nE = #(D)\n",
        checkLimit};
}
