// Reads any text as the answers of a Prometheus server, one on each line: each is refused with a reason or read, and what
// was read is judged and shown.
#include <clocale>
#include <string>
#include <vector>

#include "failure.h"
#include "fuzzing.h"
#include "verdict/formats.h"

namespace {

void requireOneLine(std::string_view text) {
    for (const char c : text)
        require(static_cast<unsigned char>(c) >= ' ' && c != 0x7f, "a line is text without control");
}

// What could not be read leaves the figures as they are.
void take(const Figure& figure, std::string_view text, Fleet* fleet) {
    try {
        const Answer answer = readAnswer(text, text.size() % 5 == 0 ? 503 : 200);
        for (const std::string& warning : answer.warnings) requireOneLine(warning);
        addAnswer(figure, answer, fleet);
    } catch (const Failure& failure) {
        require(*failure.what() != '\0', "a reason is told");
        requireOneLine(failure.what());
    }
}

void show(const FleetRun& run) {
    std::string text = fleetText(run, Style(-1));
    const Json json = fleetJson(run);
    require(json.at("generators").size() == run.generators.size(), "every generator is there");
    require(text.find(json.at("verdict").get<std::string>() + ": ") == 0, "both tell the same verdict");
    for (char& c : text) c = c == '\n' ? ' ' : c;
    requireOneLine(text);
    require(!json.dump(-1, ' ', false, Json::error_handler_t::replace).empty(), "it can be written");
}

void requireOrder(const std::vector<Judged>& all) {
    for (const auto& [name, generator, verdict] : all) {
        require(verdict.outcome <= all[0].verdict.outcome, "the worst comes first");
        require((verdict.outcome == Outcome::Clean) == verdict.findings.empty(), "every other verdict has a reason");
        require(verdict.outcome != Outcome::Clean || generator.watched, "without figures none is clean");
        require(!verdict.believed || (*verdict.believed >= 0 && *verdict.believed <= 100), "it is a percentile");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hushLog();
    static const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    require(locale != nullptr, "there is the locale of pmenv");
    std::string_view rest = textOf(data, size);
    Fleet fleet;
    for (const Figure& figure : figures()) take(figure, takeUntil(&rest, '\n'), &fleet);
    constexpr double kPercentile = 99, kWindow = 600;
    const FleetRun run{"http://monitor", "pmenv", {}, {}, kPercentile, judged(fleet, kPercentile, kWindow), {}};
    requireOrder(run.generators);
    show(run);
    return 0;
}
