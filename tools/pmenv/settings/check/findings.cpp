#include "check/findings.h"

#include <algorithm>
#include <cstdint>

#include "text.h"

namespace {

const char* severityOf(const Rule& rule) { return rule.isError() ? "error" : "warning"; }

// A piece of a line in three parts: what stands before the place that is meant, that place, and what follows.
struct SourceParts {
    std::string before;
    std::string meant;
    std::string behind;
};

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

std::size_t characterStart(const std::string& text, std::size_t position) {
    while (position > 0 && position < text.size() && continuesCharacter(text[position])) --position;
    return position;
}

// Of a long line only the surroundings of the place.
SourceParts partsOf(const std::string& line, const HiddenParts& hidden, const CheckFinding& finding) {
    constexpr std::size_t kMostBefore = 60, kMostMeant = 60, kMostBehind = 40;
    const std::size_t begin = std::min(finding.column - 1, line.size());
    const std::size_t end = std::min(begin + finding.length, line.size());
    const std::size_t first = begin > kMostBefore ? characterStart(line, begin - kMostBefore) : 0;
    const std::size_t meantEnd = end - begin > kMostMeant ? characterStart(line, begin + kMostMeant) : end;
    const std::size_t last = std::min(line.size(), characterStart(line, meantEnd + kMostBehind));
    const auto part = [&](std::size_t from, std::size_t to) {
        return hidden.within(from, to - from).shown(line.substr(from, to - from));
    };
    return {(first > 0 ? "…" : "") + part(first, begin), part(begin, meantEnd),
            part(meantEnd, last) + (last < line.size() ? "…" : "")};
}

// A tab takes one column, like every other character, so that what is beneath it stands where it should.
std::string shown(std::string text) {
    std::replace(text.begin(), text.end(), '\t', ' ');
    return printable(text);
}

std::string excerptText(const CheckedFile& checked, const CheckFinding& finding, const Style& style) {
    const SourceParts parts = partsOf(checked.sourceOf(finding), checked.hiddenOf(finding), finding);
    const std::string before = shown(parts.before);
    const std::string meant = shown(parts.meant);
    const std::string number = std::to_string(finding.line);
    const std::size_t width = std::max<std::size_t>(displayWidth(meant), 1);
    const std::string margin(std::max<std::size_t>(number.size(), 5), ' ');
    return margin.substr(number.size()) + number + " | " + before + meant + shown(parts.behind) + "\n" + margin +
           " | " + std::string(displayWidth(before), ' ') + style.green("^" + std::string(width - 1, '~')) + "\n";
}

std::string wrapped(const std::string& paragraph, const std::string& indent) {
    constexpr std::size_t kWidth = 80;
    std::string text = indent;
    std::size_t column = indent.size();
    for (std::size_t at = 0; at < paragraph.size();) {
        const std::size_t end = std::min(paragraph.find(' ', at), paragraph.size());
        if (column > indent.size() && column + 1 + (end - at) > kWidth) {
            text += "\n" + indent;
            column = indent.size();
        }
        if (column > indent.size()) text += " ", ++column;
        text += paragraph.substr(at, end - at);
        column += end - at;
        at = end + 1;
    }
    return text + "\n";
}

// "    Instead of" and the lines of a settings file, set off.
std::string exampleText(const char* title, const std::string& lines, const Style& style) {
    std::string text = "    " + style.dim(title) + "\n";
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t end = lines.find('\n', at);
        text += "        " + shown(lines.substr(at, end - at)) + "\n";
        at = end + 1;
    }
    return text;
}

Json ruleJson(const Rule& rule) {
    Json json{{"rule", rule.name}, {"severity", severityOf(rule)}, {"text", rule.description}};
    json["repair"] = rule.repair;
    json["example"] = rule.example != nullptr ? Json(rule.example) : Json();
    json["instead"] = rule.instead != nullptr ? Json(rule.instead) : Json();
    return json;
}

}  // namespace

std::string findingText(const CheckedFile& checked, const CheckFinding& finding, const Style& style) {
    const Rule& rule = *finding.rule;
    const std::string place =
        printable(checked.file) + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) + ":";
    const std::string severity = std::string(severityOf(rule)) + ":";
    return style.bold(place) + " " + (rule.isError() ? style.red(severity) : style.yellow(severity)) + " " +
           printable(finding.text) + " " + style.dim(std::string("[") + rule.name + "]") + "\n" +
           excerptText(checked, finding, style);
}

Json findingJson(const CheckedFile& checked, const CheckFinding& finding) {
    const HiddenParts hidden = checked.hiddenOf(finding);
    Json json{{"line", finding.line},
              {"column", finding.column},
              {"length", finding.length},
              {"severity", severityOf(*finding.rule)},
              {"rule", finding.rule->name},
              {"text", finding.text},
              {"source", hidden.shown(checked.sourceOf(finding))}};
    if (hidden.any()) json["sourceHidden"] = true;
    return json;
}

std::string ruleText(const Rule& rule, const Style& style) {
    std::string text = style.bold(rule.name) + " (" + severityOf(rule) + ")\n" + wrapped(rule.description, "    ") +
                       wrapped(rule.repair, "    ");
    if (rule.example == nullptr) return text;
    return text + exampleText("instead of", rule.example, style) + exampleText("write", rule.instead, style);
}

std::string rulesText(const Style& style) {
    std::string text;
    for (const Rule& rule : allRules()) text += (text.empty() ? "" : "\n") + ruleText(rule, style);
    return text;
}

Json rulesJson() {
    Json rules = Json::array();
    for (const Rule& rule : allRules()) rules.push_back(ruleJson(rule));
    return rules;
}
