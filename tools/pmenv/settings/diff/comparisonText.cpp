#include "diff/comparisonText.h"

#include "text.h"

namespace {

constexpr std::size_t kWidestText = 120;

std::string at(const FilePlace& place) {
    return "at " + std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string shown(const Excerpt& excerpt) {
    return excerpt.text.empty() ? "(empty)" : unmistakable(excerpt.text, excerpt.hides);
}

std::string shortened(const Excerpt& excerpt) { return cutToWidth(shown(excerpt), kWidestText); }

std::string valueText(const ComparedValue& value) {
    return value.shown ? shown(*value.shown) : "(no value: " + value.problem + ")";
}

// What a name stands for on one side.
std::string sideText(const CauseSide& side, bool isVariable) {
    if (side.place) return shortened(*side.text) + " " + at(*side.place);
    if (side.text) return shortened(*side.text);
    if (isVariable) return "not set";
    return side.definedBelow > 0 ? "not defined before line " + std::to_string(side.definedBelow) : "not defined";
}

std::string throughText(const Cause& cause) {
    std::string text;
    for (const Excerpt& reference : cause.through) text += (text.empty() ? " in " : ", ") + shortened(reference);
    return cause.throughLeftOut > 0 ? text + " and " + std::to_string(cause.throughLeftOut) + " more" : text;
}

std::string causeName(const Cause& cause) {
    return cause.reference ? printable(shortened(*cause.reference)) + throughText(cause) : "its text";
}

std::string causeText(const Cause& cause, const Style& style) {
    if (!cause.isKnown) {
        return "  because of " + causeName(cause) + ", which 'pmenv explain' tells more about\n";
    }
    return "  because of " + causeName(cause) + "\n    " + style.dim("A") + "  " + sideText(cause.a, cause.isVariable) +
           "\n    " + style.dim("B") + "  " + sideText(cause.b, cause.isVariable) + "\n";
}

std::string causesText(const Causes& causes, const Style& style) {
    std::string text;
    for (const Cause& cause : causes.list) text += causeText(cause, style);
    if (causes.more > 0) text += "  and of " + std::to_string(causes.more) + " more\n";
    if (causes.list.empty()) text += "  because of references that were not kept; 'pmenv explain' shows more\n";
    return text;
}

std::string onlyText(const char* side, const ComparedValue& value, const Difference& difference) {
    const std::string leftOut = difference.leftOut.empty() ? "" : "  (" + difference.leftOut + ")";
    return std::string("  only ") + side + "  " + valueText(value) + leftOut + "\n";
}

std::string differenceText(const Difference& difference, const Style& style) {
    const std::string title = style.bold(printable(difference.key)) + "\n";
    if (!difference.b) return title + onlyText("A", *difference.a, difference);
    if (!difference.a) return title + onlyText("B", *difference.b, difference);
    std::string values = "  A  " + valueText(*difference.a) + "\n  B  " + valueText(*difference.b) + "\n";
    if (difference.isHidden()) values += "  differs in what is hidden\n";
    return title + values + causesText(difference.causes, style);
}

// --- JSON -----------------------------------------------------------------------------------------------------------

void addExcerpt(Json& json, const char* name, const std::optional<Excerpt>& excerpt) {
    json[name] = excerpt ? Json(excerpt->text) : Json();
    if (excerpt && !excerpt->isWhole()) json[std::string(name) + "Length"] = excerpt->length;
    if (excerpt && excerpt->hides) json[std::string(name) + "Hidden"] = true;
}

Json valueJson(const std::optional<ComparedValue>& value) {
    if (!value) return nullptr;
    Json json{{"line", value->place.line}, {"column", value->place.column}};
    addExcerpt(json, "value", value->shown);
    if (!value->shown) json["problem"] = value->problem;
    return json;
}

Json sideJson(const CauseSide& side) {
    Json json = Json::object();
    if (side.place) json["line"] = side.place->line, json["column"] = side.place->column;
    addExcerpt(json, "text", side.text);
    if (side.definedBelow > 0) json["definedBelow"] = side.definedBelow;
    return json;
}

Json causeJson(const Cause& cause) {
    Json json = Json::object();
    addExcerpt(json, "reference", cause.reference);
    json["through"] = Json::array();
    for (const Excerpt& reference : cause.through) json["through"].push_back(reference.text);
    if (cause.throughLeftOut > 0) json["throughLeftOut"] = cause.throughLeftOut;
    json["known"] = cause.isKnown;
    json["a"] = sideJson(cause.a);
    json["b"] = sideJson(cause.b);
    return json;
}

Json differenceJson(const Difference& difference) {
    Json json{{"key", difference.key}, {"a", valueJson(difference.a)}, {"b", valueJson(difference.b)}};
    if (!difference.leftOut.empty()) json["leftOut"] = difference.leftOut;
    json["because"] = Json::array();
    for (const Cause& cause : difference.causes.list) json["because"].push_back(causeJson(cause));
    if (difference.causes.more > 0) json["becauseMore"] = difference.causes.more;
    return json;
}

}  // namespace

std::string comparisonText(const Comparison& comparison, const Style& style) {
    std::string text;
    for (const Difference& difference : comparison.differences) {
        text += (text.empty() ? "" : "\n") + differenceText(difference, style);
    }
    return text;
}

Json comparisonJson(const Comparison& comparison) {
    Json json{{"a", comparison.a}, {"b", comparison.b}, {"same", comparison.same}, {"settings", Json::array()}};
    for (const Difference& difference : comparison.differences) json["settings"].push_back(differenceJson(difference));
    return json;
}
