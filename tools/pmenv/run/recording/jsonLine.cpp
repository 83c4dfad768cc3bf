#include "recording/jsonLine.h"

#include <charconv>

#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>

#include "recording/texts.h"

namespace recording {

namespace {

[[noreturn]] void refuse(const char* name, const std::string& what) {
    throw BadLine{"\"" + std::string(name) + "\" " + what, name};
}

std::string rangeText(std::int64_t least, std::int64_t most) {
    return "from " + std::to_string(least) + " to " + std::to_string(most);
}

// The parser calls itself for each level; a recording has five.
void refuseDeepNesting(std::string_view line) {
    constexpr int kMostLevels = 32;
    int levels = 0;
    bool inText = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char character = line[i];
        if (inText && character == '\\') {
            ++i;
        } else if (character == '"') {
            inText = !inText;
        } else if (!inText && (character == '[' || character == '{')) {
            if (++levels > kMostLevels) throw BadLine{"this is nested too deeply", "", i + 1};
        } else if (!inText && (character == ']' || character == '}')) {
            --levels;
        }
    }
}

template <typename Number>
bool isAll(std::string_view text, Number& number) {
    const char* const end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end;
}

// Converts numbers itself: in RapidJSON that of a zero with many digits is undefined behaviour and gives any number.
class Document : public rapidjson::Document {
public:
    using rapidjson::Document::Document;

    rapidjson::ParseResult parse(std::string_view line) {
        constexpr unsigned kStrict = rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
        rapidjson::MemoryStream bytes(line.data(), line.size());
        rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> text(bytes);
        rapidjson::Reader reader;
        const auto values = [&](rapidjson::Document&) { return !reader.Parse<kStrict>(text, *this).IsError(); };
        Populate(values);
        return {reader.GetParseErrorCode(), reader.GetErrorOffset()};
    }

    // The parser hands over each number as it is written.
    bool RawNumber(const char* text, rapidjson::SizeType length, bool /*copy*/) {
        std::int64_t whole = 0;
        if (isAll({text, length}, whole)) return Int64(whole);
        double number = 0;
        return isAll({text, length}, number) && Double(number);
    }
};

std::string errorText(rapidjson::ParseErrorCode code) {
    if (code == rapidjson::kParseErrorTermination) return "this number is too large or too small";
    return rapidjson::GetParseError_En(code);
}

}  // namespace

const Value& JsonLine::parse(std::string_view line) {
    refuseDeepNesting(line);
    value_.SetNull();
    memory_.Clear();
    Document document(&memory_);
    const rapidjson::ParseResult result = document.parse(line);
    if (result.IsError()) throw BadLine{errorText(result.Code()), "", result.Offset() + 1};
    if (!document.IsObject()) throw BadLine{"this is no JSON object", "", 1};
    value_.Swap(document);
    return value_;
}

const Value* find(const Value& object, const char* name) {
    const auto found = object.FindMember(name);
    return found == object.MemberEnd() ? nullptr : &found->value;
}

const Value& member(const Value& object, const char* name) {
    const Value* const value = object.IsObject() ? find(object, name) : nullptr;
    if (value == nullptr) throw BadLine{"\"" + std::string(name) + "\" is missing", "", 1};
    return *value;
}

const Value& memberList(const Value& object, const char* name) {
    const Value& list = member(object, name);
    if (!list.IsArray()) refuse(name, "is no list");
    return list;
}

std::int64_t wholeNumber(const Value& value, const char* name, std::int64_t least, std::int64_t most) {
    const bool fits = value.IsInt64() && value.GetInt64() >= least && value.GetInt64() <= most;
    if (!fits) refuse(name, "needs whole numbers " + rangeText(least, most));
    return value.GetInt64();
}

std::int64_t memberNumber(const Value& object, const char* name, std::int64_t least, std::int64_t most) {
    return wholeNumber(member(object, name), name, least, most);
}

std::optional<std::int64_t> memberNumberOrNull(const Value& object, const char* name, std::int64_t least,
                                               std::int64_t most) {
    const Value& value = member(object, name);
    return value.IsNull() ? std::nullopt : std::optional(wholeNumber(value, name, least, most));
}

double memberDouble(const Value& object, const char* name, double least, double most) {
    const Value& value = member(object, name);
    if (!value.IsNumber() || value.GetDouble() < least || value.GetDouble() > most) refuse(name, "is out of its range");
    return value.GetDouble();
}

std::optional<double> memberDoubleOrNull(const Value& object, const char* name, double least, double most) {
    return member(object, name).IsNull() ? std::nullopt : std::optional(memberDouble(object, name, least, most));
}

bool memberFlag(const Value& object, const char* name) {
    const Value& value = member(object, name);
    if (!value.IsBool()) refuse(name, "is neither true nor false");
    return value.GetBool();
}

std::string text(const Value& value, const char* name) {
    if (!value.IsString()) refuse(name, "is no text");
    return fromUtf8({value.GetString(), value.GetStringLength()});
}

std::string memberText(const Value& object, const char* name) { return text(member(object, name), name); }

std::vector<std::string> memberTexts(const Value& object, const char* name) {
    std::vector<std::string> texts;
    for (const Value& item : memberList(object, name).GetArray()) texts.push_back(text(item, name));
    return texts;
}

}  // namespace recording
