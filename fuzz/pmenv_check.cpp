// Runs pmenv check on any file: it must end, its findings must lie in the file, and it must refuse what the library
// refuses.
#include <clocale>
#include <string_view>

#include "check/check.h"
#include "check/findings.h"
#include "failure.h"
#include "fuzzing.h"
#include "slowSettings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hushLog();
    static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    require(locale != nullptr, "there is the locale of pmenv");
    static MemoryFile file;
    file.fill(textOf(data, size));

    const CheckedFile checked = checkFile({file.path(), "", "", {}});
    bool refused = false;
    for (const CheckFinding& finding : checked.findings) {
        const std::string source = checked.sourceOf(finding);
        require(finding.line >= 1 && static_cast<std::size_t>(finding.line) <= checked.lines.size(), "the line exists");
        require(finding.column >= 1 && finding.column <= source.size() + 1, "the column lies in the line");
        require(finding.column - 1 + finding.length <= source.size() + 1, "what is meant lies in the line");
        require(!findingText(checked, finding, Style(-1)).empty(), "the finding can be shown");
        findingJson(checked, finding).dump(-1, ' ', false, Json::error_handler_t::replace);
        refused = refused || std::string_view(finding.rule->name) == "syntax";
    }
    const std::string text(textOf(data, size));
    require(refused == !SlowParser(text).file().error.empty(), "a syntax error is found where there is one");
    return 0;
}
