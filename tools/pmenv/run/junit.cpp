#include "junit.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "judgement/findings.h"
#include "text.h"

namespace {

// printable has left characters of valid UTF-8 only. Of these, XML forbids two that no text uses.
std::string xmlText(const std::string& text) {
    static const std::pair<const char*, const char*> kReplacements[] = {
        {"&", "&amp;"},  // first, because the others contain it
        {"<", "&lt;"},
        {">", "&gt;"},
        {"\"", "&quot;"},
        {"\xEF\xBF\xBE", "\xEF\xBF\xBD"},
        {"\xEF\xBF\xBF", "\xEF\xBF\xBD"},
    };
    std::string shown = printable(text);
    for (const auto& [from, to] : kReplacements) {
        for (std::size_t at = 0; (at = shown.find(from, at)) != std::string::npos; at += std::strlen(to)) {
            shown.replace(at, std::strlen(from), to);
        }
    }
    return shown;
}

std::string attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + xmlText(value) + "\"";
}

std::string timeText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

std::string findingsXml(const JudgedRun& run) {
    std::string lines;
    for (const RunFinding& finding : findingsOf(run.judged, run.limits)) {
        lines += "\n" + xmlText(whenText(finding) + finding.text) + "\n  " + xmlText(finding.advice) + "\n";
    }
    return lines;
}

std::string caseXml(const JudgedRun& run) {
    const std::string begin = "    <testcase" + attribute("classname", "pmenv.judge") +
                              attribute("name", run.context.host) + attribute("time", timeText(run.judged.seconds));
    if (run.judged.outcome == Outcome::Clean) return begin + "/>\n";
    const bool spoiled = run.judged.outcome == Outcome::Spoiled;
    const std::string element = spoiled ? "failure" : "error";
    return begin + ">\n      <" + element + attribute("message", reasonText(run.judged, run.limits)) +
           attribute("type", outcomeText(run.judged.outcome)) + ">" + findingsXml(run) + "</" + element +
           ">\n    </testcase>\n";
}

std::string countOf(const std::vector<JudgedRun>& runs, Outcome outcome) {
    return std::to_string(
        std::count_if(runs.begin(), runs.end(), [&](const JudgedRun& run) { return run.judged.outcome == outcome; }));
}

}  // namespace

std::string junitXml(const std::vector<JudgedRun>& runs) {
    const std::string counts = attribute("tests", std::to_string(runs.size())) +
                               attribute("failures", countOf(runs, Outcome::Spoiled)) +
                               attribute("errors", countOf(runs, Outcome::CannotTell));
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + counts + ">\n  <testsuite" +
                      attribute("name", "pmenv judge") + counts + ">\n";
    for (const JudgedRun& run : runs) xml += caseXml(run);
    return xml + "  </testsuite>\n</testsuites>\n";
}
