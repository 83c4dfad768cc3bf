#include "explain/explanationText.h"

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

// "at 35:16"
std::string at(const FilePlace& place) {
    return "at " + std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string shown(const Excerpt& excerpt) {
    return excerpt.text.empty() ? "(empty)" : unmistakable(excerpt.text, excerpt.hides);
}

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

    std::string filesText() const;
    std::string rootSource() const;
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
    text_ = filesText() + style_.bold(title) + (isText ? "" : ": " + rootSource()) + "\n";
    if (explanation_.known) addLine("│ ", "help", printable(explanation_.known->helpText()));
    addValue(explanation_.root, "");
    if (explanation_.failure) {
        addFailure(*explanation_.failure);
    } else {
        addLine("└ ", "value", style_.green(shown(*explanation_.root.value)));
    }
    return text_;
}

// Places further down are lines and columns of these.
std::string TreeText::filesText() const {
    const std::string references =
        explanation_.pressmark.empty() ? "" : "references mean " + printable(explanation_.pressmark) + "\n";
    return printable(explanation_.file) + "\n" + references + "\n";
}

std::string TreeText::rootSource() const {
    const ExplainedValue& root = explanation_.root;
    return root.source == Source::Setting ? "setting " + at(*root.place) : source(root);
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
    if (value.hidden) addLine(indent, "note", "hides the setting " + at(*value.hidden));
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

std::string linkText(const ExplainedFailure::Link& link) {
    return linkName(link) + (link.place ? " " + at(*link.place) : ", process environment");
}

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
        const std::string origin = linkText(link);
        places += "  " + origin + ": " + shortened(link.text, displayWidth(origin) + 4) + "\n";
    }
    text_ += "  " + names + "\n" + places;
}

void TreeText::addLine(const std::string& indent, const char* label, const std::string& text) {
    text_ += indent + label + std::string(kLabelWidth - std::string_view(label).size(), ' ') + text + "\n";
}

std::string TreeText::source(const ExplainedValue& value) const {
    switch (value.source) {
        case Source::Setting:
            return (explanation_.pressmark.empty() ? "setting " : "setting of pressmark.ini ") + at(*value.place);
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
    const std::string whole = shown(excerpt);
    std::string text = cutToWidth(whole, std::clamp(columns, kNarrowestText, kWidestText));
    if (width_ || (text.size() == whole.size() && excerpt.isWhole())) return text;
    return text + " (" + grouped(excerpt.length) + " characters)";
}

std::string TreeText::labelled(const std::string& indent, const char* label, const Excerpt& excerpt) const {
    return indent + label + std::string(kLabelWidth - std::string_view(label).size(), ' ') +
           shortened(excerpt, displayWidth(indent) + kLabelWidth) + "\n";
}

}  // namespace

std::string explanationText(const Explanation& explanation, const Style& style, std::optional<std::size_t> width) {
    return TreeText(explanation, style, width).compose();
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
