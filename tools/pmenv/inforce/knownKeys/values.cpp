// What is wrong with a value.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

#include "knownKeys/knownKeys.h"
#include "nearest.h"

namespace {

using Type = KnownKey::Type;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::string_view withoutSign(std::string_view text) {
    return !text.empty() && (text[0] == '-' || text[0] == '+') ? text.substr(1) : text;
}

std::string lower(std::string text) {
    for (char& character : text) character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return text;
}

bool isOneOf(const std::vector<std::string>& values, const std::string& value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

bool hasType(const KnownKey& key, const std::string& value) {
    switch (key.type) {
        case Type::Text:
            return true;
        case Type::Integer:
            return isInteger(value);
        case Type::Number:
            return decimalNumber(value).has_value();
        case Type::Boolean:
            return isBoolean(value);
        case Type::Path:
        case Type::File:
            return !value.empty();
        case Type::Choice:
            break;
    }
    return isOneOf(key.values, value);
}

}  // namespace

std::string shownValue(const std::string& value, const HiddenParts& hidden) {
    constexpr std::size_t kLongest = 80;
    if (value.empty()) return "an empty value";
    std::string shown = hidden.shown(value);
    if (hidden.any() && shown == HiddenParts::kShown) return shown;
    return "'" + (shown.size() <= kLongest ? shown : shown.substr(0, kLongest) + "...") + "'";
}

std::optional<double> decimalNumber(const std::string& text) {
    const std::string_view digits = withoutSign(text);
    if (digits.empty() || !isDigit(digits.front()) || !isDigit(digits.back())) return std::nullopt;
    double number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, number, std::chars_format::fixed);
    if (error != std::errc() || rest != end) return std::nullopt;
    return text[0] == '-' ? -number : number;
}

bool isInteger(const std::string& text) { return decimalNumber(text) && text.find('.') == std::string::npos; }

bool isBoolean(const std::string& text) {
    return isOneOf({"yes", "no", "true", "false", "on", "off", "1", "0"}, lower(text));
}

std::string typeProblem(const KnownKey& key, const std::string& value, const HiddenParts& hidden) {
    if (hasType(key, value)) return "";
    const bool suggests = key.type == Type::Choice && !hidden.any();
    return shownValue(value, hidden) + ", but " + key.name + " is " + key.typeText() +
           (suggests ? didYouMean(nearestNames(value, key.values)) : "");
}

std::string rangeProblem(const KnownKey& key, const std::string& value, const HiddenParts& hidden) {
    const std::optional<double> number = key.isNumeric() && hasType(key, value) ? decimalNumber(value) : std::nullopt;
    const bool fits =
        !number || ((!key.least || *number >= key.least->value) && (!key.most || *number <= key.most->value));
    return fits ? "" : shownValue(value, hidden) + " is out of range: " + key.name + " is " + key.typeText();
}
