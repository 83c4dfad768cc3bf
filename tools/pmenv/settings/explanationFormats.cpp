#include "explanationFormats.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "nearest.h"
#include "text.h"

namespace {

using Expanded = ExplainedValue::Expanded;
using Reason = ExplainedFailure::Reason;
using Source = ExplainedValue::Source;

// "65,536"
std::string grouped(std::size_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t i = digits.size(); i > 3; i -= 3) digits.insert(i - 3, ",");
    return digits;
}

std::string inFile(const std::string& file, const FilePlace& place) {
    return file + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

// Blanks at the ends would not be seen.
std::string shown(const std::string& text) {
    if (text.empty()) return "(empty)";
    const bool hasBlankEnd = text.front() == ' ' || text.back() == ' ';
    return hasBlankEnd ? "\"" + printable(text) + "\"" : printable(text);
}

// --- the tree for people --------------------------------------------------------------------------------------------

class TreeText {
public:
    TreeText(const Explanation& explanation, const Style& style, std::optional<std::size_t> width)
        : explanation_(explanation), style_(style), width_(width) {}

    std::string compose();

private:
    void addValue(const ExplainedValue& value, const std::string& indent);
    void addNotes(const ExplainedValue& value, const std::string& indent);
    void addStep(const ExplainedValue& step, const std::string& indent);
    bool isShown(const ExplainedValue& step);
    void addFailure(const ExplainedFailure& failure);
    void addChain(const ExplainedFailure& failure);
    void addLine(const std::string& indent, const char* label, const std::string& text);

    std::string source(const ExplainedValue& value) const;
    std::string shortened(const Excerpt& excerpt, std::size_t columnsBefore) const;
    std::string labelled(const std::string& indent, const char* label, const Excerpt& excerpt) const;

    const Explanation& explanation_;
    const Style& style_;
    std::optional<std::size_t> width_;
    std::string text_;
    std::set<std::pair<std::string, int>> shown_;  // references with steps of their own, and the line of what they name
};

constexpr std::size_t kLabelWidth = 8;
constexpr std::size_t kWidestName = 100;
constexpr std::size_t kNarrowestText = 20;
constexpr std::size_t kWidestText = 240;

std::string nameText(const Excerpt& name) { return cutToWidth(printable(name.text), kWidestName); }

std::string TreeText::compose() {
    const bool isText = explanation_.root.source == Source::Text;
    const std::string title = isText ? "text" : cutToWidth(printable(explanation_.name), kWidestName);
    text_ = style_.bold(title) + (isText ? "" : ": " + source(explanation_.root)) + "\n";
    addValue(explanation_.root, "");
    if (explanation_.failure) {
        addFailure(*explanation_.failure);
    } else {
        addLine("└ ", "value", style_.green(shown(*explanation_.value)));
    }
    return text_;
}

// All but the value that it became.
void TreeText::addValue(const ExplainedValue& value, const std::string& indent) {
    const bool hasSteps = !value.steps.empty() || value.stepsLeftOut > 0;
    if (value.raw && (hasSteps || !value.value)) text_ += labelled(indent + "│ ", "text", *value.raw);
    addNotes(value, indent + "│ ");
    const auto isLoad = [](const ExplainedValue& step) { return step.expanded == Expanded::AtLoad; };
    const auto firstRead = std::find_if_not(value.steps.begin(), value.steps.end(), isLoad);
    for (auto step = value.steps.begin(); step != firstRead; ++step) addStep(*step, indent);
    if (firstRead != value.steps.begin() && value.source == Source::Setting && value.stored) {
        text_ += labelled(indent + "│ ", "stored", *value.stored);
    }
    for (auto step = firstRead; step != value.steps.end(); ++step) addStep(*step, indent);
    if (value.stepsLeftOut > 0) {
        text_ += indent + "├─ … " + grouped(value.stepsLeftOut) + " more, not shown\n";
    }
}

std::string linesText(const LineList& lines) {
    std::string text = lines.lines.size() + lines.more > 1 ? "lines " : "line ";
    for (std::size_t i = 0; i < lines.lines.size(); ++i) text += (i > 0 ? ", " : "") + std::to_string(lines.lines[i]);
    return text + (lines.more > 0 ? " and " + grouped(lines.more) + " more" : "");
}

void TreeText::addNotes(const ExplainedValue& value, const std::string& indent) {
    if (!value.replaced.lines.empty()) addLine(indent, "note", "replaces the value of " + linesText(value.replaced));
    if (!value.leftOut.lines.empty()) {
        addLine(indent, "note", "the value of " + linesText(value.leftOut) + " was left out when the file was loaded");
    }
    if (value.hidden) addLine(indent, "note", "hides the setting in " + inFile(explanation_.file, *value.hidden));
}

// What a setting becomes, and how, is the same each time that it is referred to.
bool TreeText::isShown(const ExplainedValue& step) {
    if (step.steps.empty() || !step.place || !step.value) return false;
    return !shown_.insert({step.reference->text, step.place->line}).second;
}

void TreeText::addStep(const ExplainedValue& step, const std::string& indent) {
    std::string where = ", from a substitution";
    if (step.writtenAt) {
        where = step.writtenAt->line > 0 ? " at " + std::to_string(step.writtenAt->line) + ":" : " at column ";
        where += std::to_string(step.writtenAt->column);
    }
    const char* const when = step.expanded == Expanded::AtLoad ? ", when loaded: " : ", when read: ";
    text_ += indent + "├─ " + style_.bold(nameText(*step.reference)) + where + style_.dim(when) + source(step);
    if (isShown(step)) {
        text_ += ", as above\n";
    } else {
        text_ += "\n";
        addValue(step, indent + "│  ");
    }
    const std::string end = indent + "│  └ ";
    text_ += step.value ? labelled(end, "value", *step.value) : end + "no value\n";
}

void TreeText::addFailure(const ExplainedFailure& failure) {
    const std::string when = failure.atLoad ? "left out when the file was loaded: " : "";
    text_ += "└ " + style_.red("no value: " + when + failureText(failure)) + "\n";
    if (!failure.chain.empty()) addChain(failure);
}

std::string linkName(const ExplainedFailure::Link& link) { return (link.isVariable ? "$" : "") + nameText(link.name); }

// "A -> B -> A", then each text of it once with its place.
void TreeText::addChain(const ExplainedFailure& failure) {
    std::string names;
    std::string places;
    for (std::size_t i = 0; i < failure.chain.size(); ++i) {
        const ExplainedFailure::Link& link = failure.chain[i];
        if (i == ObservedFailure::kLinksBeforeGap && failure.linksLeftOut > 0) {
            names += " -> … " + grouped(failure.linksLeftOut) + " more …";
            places += "  …\n";
        }
        names += (i > 0 ? " -> " : "") + style_.bold(linkName(link));
        if (i + 1 == failure.chain.size()) break;
        const std::string place = link.place ? inFile(explanation_.file, *link.place) : "process environment";
        places += "  " + linkName(link) + ": " + place + ": " +
                  shortened(link.text, linkName(link).size() + place.size() + 6) + "\n";
    }
    text_ += "  " + names + "\n" + places;
}

void TreeText::addLine(const std::string& indent, const char* label, const std::string& text) {
    text_ += indent + label + std::string(kLabelWidth - std::string_view(label).size(), ' ') + text + "\n";
}

std::string TreeText::source(const ExplainedValue& value) const {
    switch (value.source) {
        case Source::Setting:
            return "setting, " + inFile(explanation_.file, *value.place);
        case Source::Variable:
            return "process environment";
        case Source::RunTime:
            return "run-time table";
        case Source::Text:
        case Source::Nowhere:
            break;
    }
    if (value.definedBelow > 0) return "not defined yet, comes in line " + std::to_string(value.definedBelow);
    return style_.yellow("not defined anywhere") + printable(didYouMean(value.nearest));
}

std::string TreeText::shortened(const Excerpt& excerpt, std::size_t columnsBefore) const {
    const std::size_t columns = width_ ? *width_ - std::min(*width_, columnsBefore) : kWidestText;
    const std::string whole = shown(excerpt.text);
    std::string text = cutToWidth(whole, std::clamp(columns, kNarrowestText, kWidestText));
    if (width_ || (text.size() == whole.size() && excerpt.isWhole())) return text;
    return text + " (" + grouped(excerpt.length) + " characters)";
}

std::string TreeText::labelled(const std::string& indent, const char* label, const Excerpt& excerpt) const {
    return indent + label + std::string(kLabelWidth - std::string_view(label).size(), ' ') +
           shortened(excerpt, displayWidth(indent) + kLabelWidth) + "\n";
}

// --- JSON -----------------------------------------------------------------------------------------------------------

Json placeJson(const std::optional<FilePlace>& place) {
    if (!place) return nullptr;
    Json json = Json::object();
    if (place->line > 0) json["line"] = place->line;
    json["column"] = place->column;
    return json;
}

// The length tells of a text that is cut.
void addExcerpt(Json& json, const std::string& name, const std::optional<Excerpt>& excerpt) {
    json[name] = excerpt ? Json(excerpt->text) : Json();
    if (excerpt && !excerpt->isWhole()) json[name + "Length"] = excerpt->length;
}

void addLines(Json& json, const std::string& name, const LineList& lines) {
    if (lines.lines.empty()) return;
    json[name] = lines.lines;
    if (lines.more > 0) json[name + "More"] = lines.more;
}

const char* sourceName(Source source) {
    switch (source) {
        case Source::Setting:
            return "setting";
        case Source::Variable:
            return "environment";
        case Source::RunTime:
            return "run-time table";
        case Source::Text:
            return "text";
        case Source::Nowhere:
            break;
    }
    return "nowhere";
}

Json valueJson(const ExplainedValue& value) {
    Json json = Json::object();
    if (value.reference) {
        addExcerpt(json, "reference", value.reference);
        json["expanded"] = value.expanded == Expanded::AtLoad ? "load" : "read";
        json["at"] = placeJson(value.writtenAt);
    }
    json["source"] = sourceName(value.source);
    if (value.place) json["place"] = placeJson(value.place);
    addExcerpt(json, "raw", value.raw);
    if (value.source == Source::Setting) addExcerpt(json, "stored", value.stored);
    addExcerpt(json, "value", value.value);
    addLines(json, "replaced", value.replaced);
    addLines(json, "leftOut", value.leftOut);
    if (value.definedBelow > 0) json["definedBelow"] = value.definedBelow;
    if (value.hidden) json["hidden"] = placeJson(value.hidden);
    if (!value.nearest.empty()) json["nearest"] = value.nearest;
    json["steps"] = Json::array();
    for (const ExplainedValue& step : value.steps) json["steps"].push_back(valueJson(step));
    if (value.stepsLeftOut > 0) json["stepsLeftOut"] = value.stepsLeftOut;
    return json;
}

const char* reasonName(Reason reason) {
    switch (reason) {
        case Reason::NotDefined:
            return "not defined";
        case Reason::Cycle:
            return "cycle";
        case Reason::Levels:
            return "levels";
        case Reason::Substitutions:
            return "substitutions";
        case Reason::TextLength:
            return "text length";
        case Reason::Searching:
            return "searching";
        case Reason::TooLong:
            break;
    }
    return "too long";
}

Json linkJson(const ExplainedFailure::Link& link) {
    Json json = Json::object();
    addExcerpt(json, "name", link.name);
    json["source"] = sourceName(link.isVariable ? Source::Variable : Source::Setting);
    json["place"] = placeJson(link.place);
    addExcerpt(json, "raw", link.text);
    return json;
}

Json failureJson(const ExplainedFailure& failure) {
    Json json{{"reason", reasonName(failure.reason)}, {"when", failure.atLoad ? "load" : "read"}};
    json["text"] = failureText(failure);
    if (failure.chain.empty()) return json;
    json["chain"] = Json::array();
    for (const ExplainedFailure::Link& link : failure.chain) json["chain"].push_back(linkJson(link));
    if (failure.linksLeftOut > 0) json["chainLeftOut"] = failure.linksLeftOut;
    return json;
}

}  // namespace

std::string explanationText(const Explanation& explanation, const Style& style, std::optional<std::size_t> width) {
    return TreeText(explanation, style, width).compose();
}

Json explanationJson(const Explanation& explanation) {
    Json json{{"file", explanation.file}};
    if (explanation.root.source != Source::Text) json["name"] = explanation.name;
    json["value"] = explanation.value ? Json(*explanation.value) : Json();
    json["failure"] = explanation.failure ? failureJson(*explanation.failure) : Json();
    json["explanation"] = valueJson(explanation.root);
    return json;
}

std::string failureText(const ExplainedFailure& failure) {
    switch (failure.reason) {
        case Reason::NotDefined:
            return "no such setting";
        case Reason::Cycle:
            return "its references lead back to themselves";
        case Reason::Levels:
            return "its references are nested deeper than 512 levels";
        case Reason::Substitutions:
            return "it takes more than 65,536 substitutions";
        case Reason::TextLength:
            return "a text on the way is longer than 1 MiB";
        case Reason::Searching:
            return "it takes more than 256 Mi characters of searching";
        case Reason::TooLong:
            break;
    }
    return "it has " + grouped(failure.length) + " characters, the limit is 2,047";
}
