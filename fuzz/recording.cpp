// Reads any file as a recording, judges and draws what is in it: it must be read or refused with its place, and what was
// read must come back when it is recorded once more.
#include <clocale>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "chart/page.h"
#include "chart/recordedRun.h"
#include "failure.h"
#include "fuzzing.h"
#include "judgeFormats.h"
#include "recording/recording.h"

namespace {

std::string judgedText(const std::vector<Evidence>& run, const JudgeLimits& limits) {
    Judgement judgement(limits);
    for (const Evidence& evidence : run) judgement.add(evidence);
    const Judged judged = judgement.judged(!run.empty() && !run.back().missingNames.empty());
    return judgeText(judged, limits, {}, Style(-1)) +
           judgeJson(judged, limits, {}).dump(-1, ' ', false, Json::error_handler_t::replace);
}

struct Read {
    RecordingHeader header;
    std::vector<Evidence> run;
};

// Throws Failure for a file that is refused.
Read readAll(const std::string& path) {
    RecordingReader reader(path);
    Read read{reader.header(), {}};
    while (const auto item = reader.next()) {
        if (const auto* const evidence = std::get_if<Evidence>(&*item)) read.run.push_back(*evidence);
    }
    require(reader.outcome() || !reader.warnings().empty(), "a recording without an outcome is told");
    return read;
}

void draw(const std::string& path) {
    std::vector<ChartRun> runs;
    runs.push_back(readRecordedRun(path));
    const std::string page = chartPage(runs, std::nullopt);
    const std::string end = "</html>\n";
    require(page.size() > end.size() && page.substr(page.size() - end.size()) == end, "the page is drawn to its end");
    require(page.find('\0') == std::string::npos, "the page is text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hushLog();
    static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    require(locale != nullptr, "there is the locale of pmenv");
    static MemoryFile file, second;
    file.fill(textOf(data, size));
    try {
        const Read first = readAll(file.path());
        second.fill("");
        {
            RecordingWriter writer(second.path(), first.header);
            for (const Evidence& evidence : first.run) writer.write(evidence);
        }
        const Read again = readAll(second.path());
        require(again.run.size() == first.run.size(), "all intervals come back");
        requireEqual(judgedText(first.run, first.header.limits), judgedText(again.run, again.header.limits),
                     "the verdict is the same");
        draw(file.path());
    } catch (const Failure& failure) {
        if (std::string(failure.what()).find(file.path()) != 0)
            fail(std::string("it is not told where: ") + failure.what());
    }
    return 0;
}
