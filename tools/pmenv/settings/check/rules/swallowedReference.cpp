// A name in braces that reaches further than it looks.
#include "check/references.h"
#include "check/rule.h"

namespace {

void checkSwallowedReference(const Expansion& expansion, const SettingsText& settings, Report& report) {
    for (const Reference& reference : expansion.references) {
        if (whatIsWrong(reference, expansion, settings) != Misreference::Swallowed) continue;
        report.atReference(*expansion.entry, reference,
                           quoted(reference.written) + " is one reference, to the name " + quoted(reference.name) +
                               "; part the two by a blank or write them in parentheses");
    }
}

}  // namespace

Rule swallowedReferenceRule() {
    return {
        "swallowed-reference",
        Rule::Severity::Error,
        "A name in braces reaches to the last } before the next blank or parenthesis. So ${A}${B} is one reference, "
        "to the name A}${B, and expands to nothing.",
        "Put a blank or a parenthesis between the two references, or write both in parentheses: $(A)$(B).",
        "A = 1\nB = 2\nBOTH = #{A}#{B}\n",
        "A = 1\nB = 2\nBOTH = #(A)#(B)\n",
        checkSwallowedReference};
}
