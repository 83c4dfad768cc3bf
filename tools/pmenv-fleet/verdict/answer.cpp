#include "answer.h"

#include <charconv>
#include <cmath>

#include <nlohmann/json.hpp>

#include "failure.h"
#include "text.h"

namespace {

// Not the type that keeps the order of members: it searches them one by one, and somebody may send a million.
using json = nlohmann::json;

// --- members that must be there -------------------------------------------------------------------------------------

[[noreturn]] void refuse(const std::string& what) {
    throw Failure("the answer is not one of Prometheus: " + what +
                  "; is the URL right, with the path in front of /api?");
}

const json& member(const json& object, const char* name) {
    if (!object.is_object() || !object.contains(name)) refuse(std::string("it has no '") + name + "'");
    return object[name];
}

const std::string& textOf(const json& value, const char* what) {
    if (!value.is_string()) refuse(std::string("'") + what + "' is no text");
    return value.get_ref<const std::string&>();
}

const json& arrayOf(const json& value, const char* what) {
    if (!value.is_array()) refuse(std::string("'") + what + "' is no list");
    return value;
}

// --- samples --------------------------------------------------------------------------------------------------------

std::optional<double> numberOf(const std::string& text) {
    if (text == "NaN" || text == "+Inf" || text == "-Inf") return std::nullopt;
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    if (!whole || !std::isfinite(number)) refuse("a value is no number");
    return number;
}

Sample sampleOf(const json& given) {
    Sample sample;
    const json& metric = member(given, "metric");
    if (!metric.is_object()) refuse("'metric' is no object");
    for (const auto& [name, value] : metric.items()) sample.labels[name] = textOf(value, "metric");
    const json& value = arrayOf(member(given, "value"), "value");
    if (value.size() != 2) refuse("'value' is no time with a number");
    sample.value = numberOf(textOf(value[1], "value"));
    return sample;
}

// --- the whole answer -----------------------------------------------------------------------------------------------

// Short enough for a line. The parser of the server quotes the whole query.
std::string shortened(const std::string& text) {
    constexpr std::size_t kLongest = 400;
    return cutToWidth(printable(text), kLongest);
}

// An answer is a few levels deep. A text of nothing but brackets would take a hundred times its size in memory.
json parsed(std::string_view text) {
    constexpr int kDeepest = 16;
    bool tooDeep = false;
    const auto look = [&tooDeep](int depth, json::parse_event_t, const json&) {
        tooDeep = tooDeep || depth > kDeepest;
        return !tooDeep;
    };
    json whole = json::parse(text.begin(), text.end(), look, false);
    if (tooDeep) refuse("it is nested too deeply");
    return whole;
}

[[noreturn]] void tellStatus(long httpStatus) {
    const std::string status = "it answers with HTTP status " + std::to_string(httpStatus);
    if (httpStatus == 401 || httpStatus == 403) throw Failure(status + ": it wants a user who may ask it");
    throw Failure(status + "; is the URL right, with the path in front of /api?");
}

[[noreturn]] void tellError(const json& answer) {
    const auto told = [&answer](const char* name) {
        return answer.contains(name) ? shortened(textOf(answer[name], name)) : std::string("(no text)");
    };
    throw Failure("the server says: " + told("errorType") + ": " + told("error"));
}

std::vector<std::string> warningsOf(const json& answer) {
    std::vector<std::string> warnings;
    if (!answer.contains("warnings")) return warnings;
    for (const json& warning : arrayOf(answer["warnings"], "warnings")) {
        warnings.push_back(shortened(textOf(warning, "warnings")));
    }
    return warnings;
}

}  // namespace

Answer readAnswer(std::string_view text, long httpStatus) {
    constexpr long kOk = 200;
    const json whole = parsed(text);
    if (whole.is_object() && whole.value("status", json()) == "error") tellError(whole);
    if (httpStatus != kOk) tellStatus(httpStatus);
    if (whole.is_discarded()) refuse("it is no JSON");
    if (member(whole, "status") != "success") refuse("'status' is neither success nor error");

    Answer answer{{}, warningsOf(whole)};
    const json& data = member(whole, "data");
    if (textOf(member(data, "resultType"), "resultType") != "vector") refuse("'resultType' is not vector");
    for (const json& sample : arrayOf(member(data, "result"), "result")) answer.samples.push_back(sampleOf(sample));
    return answer;
}
