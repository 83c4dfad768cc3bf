#include "checkRules.h"

#include <iterator>

namespace {

// In the order of the enumeration.
constexpr RuleDescription kDescriptions[] = {
    {"syntax", true,
     "A line that is neither empty nor a comment, [section] or KEY = value. The library refuses a file with such a "
     "line "
     "as a whole; the other lines are checked as if it were not there."},
    {"cycle", true,
     "A value whose references lead back to itself. In braces it is left out when the file is loaded, in parentheses "
     "it "
     "cannot be read."},
    {"limit", true,
     "A value that takes more than the library allows: 2047 characters when it is expanded, 1 MiB of text on the way, "
     "512 "
     "nested levels, 65,536 references or 256 Mi characters of searching. It is left out or cannot be read, like a "
     "cycle."},
    {"swallowed-reference", true,
     "A name in braces reaches to the last } before the next blank or parenthesis. So ${A}${B} is one reference, to "
     "the "
     "name A}${B, and expands to nothing. Part the two by a blank or a parenthesis, or write $(A)$(B)."},
    {"used-before-defined", true,
     "A reference #{NAME} to a setting that stands further down. References in braces are expanded while the file is "
     "loaded, and see only what stands above. Move the setting up, or write #(NAME)."},
    {"undefined-setting", true, "A reference to a setting that the file does not define. It expands to nothing."},
    {"unset-variable", false,
     "A reference to a variable that the process environment does not have. It expands to nothing; the programs that "
     "read the file may have another environment than this command."},
    {"not-a-reference", false,
     "What looks like a reference but does not fit the pattern, and so stays as it stands: a bracket that is not "
     "closed, "
     "blanks around the name, no name at all, or a process variable without brackets like $HOME. Texts for a shell, "
     "like "
     "$(date +%F), are left alone."},
    {"duplicate-key", false,
     "A key that stands further up as well. The later value counts, the earlier one is lost, unless the later value "
     "takes it over: LIST = #{LIST},more."},
    {"missing-release", false,
     "A pressmark.ini without KR_VERSION or KR_BUILD. The start-up report of every program shows <NullChar*> instead. "
     "Files of other names are not expected to have them."},
    {"too-much-work", true,
     "The values of the file take so much expanding that checking has been cut short. A file like this keeps every "
     "program that loads it busy, or is made to."},
};
static_assert(std::size(kDescriptions) == kRules, "each rule has a description");

}  // namespace

const RuleDescription& describe(Rule rule) { return kDescriptions[static_cast<std::size_t>(rule)]; }
