// A carriage return that does not end a line.
#include "check/rule.h"

namespace {

void checkCarriageReturn(const SettingsLine& line, const SettingsText& /*settings*/, Report& report) {
    const std::size_t position = line.text.find('\r');
    if (position == std::string::npos) return;
    report.at(line.number, position + 1, 1,
              "a carriage return within the line; a line ends with LF or CRLF, and what follows still belongs to it");
}

}  // namespace

Rule carriageReturnRule() {
    return {"carriage-return",
            Rule::Severity::Error,
            "A carriage return in the middle of a line, as in a file whose lines end with it alone. The library takes "
            "the whole text up to the next LF for one line, and so for one value or one comment.",
            "End each line with LF or CRLF.",
            "PORT = 8080\rHOST = here\n",
            "PORT = 8080\nHOST = here\n",
            checkCarriageReturn};
}
