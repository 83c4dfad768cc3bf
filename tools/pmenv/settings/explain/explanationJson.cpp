#include "explain/explanationJson.h"

#include "explain/explanationText.h"

namespace {

using Expanded = ExplainedValue::Expanded;
using Reason = ExplainedFailure::Reason;
using Source = ExplainedValue::Source;

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
    if (excerpt && excerpt->hides) json[name + "Hidden"] = true;
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
    for (const ExplainedFailure::Link& link : failure.chain) json["chain"].push_back(linkJson(link));
    if (failure.linksLeftOut > 0) json["chainLeftOut"] = failure.linksLeftOut;
    return json;
}

}  // namespace

Json explanationJson(const Explanation& explanation) {
    Json json{{"file", explanation.file}};
    if (!explanation.pressmark.empty()) json["pressmark"] = explanation.pressmark;
    if (explanation.root.source != Source::Text) json["name"] = explanation.name;
    if (explanation.known) {
        json["known"] = {{"type", explanation.known->typeText()}, {"help", explanation.known->help}};
    }
    json["value"] = explanation.value ? Json(*explanation.value) : Json();
    json["failure"] = explanation.failure ? failureJson(*explanation.failure) : Json();
    json["explanation"] = valueJson(explanation.root);
    return json;
}
