// Runs pmenv diff on any file, compared with itself, with its first half and with its second: it must end, find no
// difference of a file with itself, and find the same differences whichever side comes first.
#include <clocale>
#include <optional>
#include <string_view>

#include "diff/comparison.h"
#include "diff/comparisonText.h"
#include "failure.h"
#include "fuzzing.h"

namespace {

std::optional<Side> sideOf(std::string_view text, Form form) {
    static MemoryFile file;
    file.fill(text);
    try {
        return readSide({file.path(), "file.ini", std::nullopt, form, {}});
    } catch (const Failure&) {
        return std::nullopt;  // the library refuses it, or it takes too much work
    }
}

void checkShown(const Comparison& comparison) {
    const std::string text = comparisonText(comparison, Style(-1));
    require(text.empty() == comparison.differences.empty(), "every difference is shown");
    comparisonJson(comparison).dump(-1, ' ', false, Json::error_handler_t::replace);
}

void compare(const Side& a, const std::optional<Side>& b) {
    if (!b) return;
    const Comparison forth = compareSides(a, *b);
    const Comparison back = compareSides(*b, a);
    require(forth.differences.size() == back.differences.size() && forth.same == back.same, "both ways are alike");
    checkShown(forth);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hushLog();
    static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    require(locale != nullptr, "there is the locale of pmenv");
    const std::string_view text = textOf(data, size);
    for (const Form form : {Form::Expanded, Form::Stored}) {
        const std::optional<Side> whole = sideOf(text, form);
        if (!whole) continue;
        require(compareSides(*whole, *sideOf(text, form)).differences.empty(), "a file does not differ from itself");
        compare(*whole, sideOf(text.substr(0, size / 2), form));
        compare(*whole, sideOf(text.substr(size / 2), form));
    }
    return 0;
}
