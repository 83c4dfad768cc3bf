// jsonLine.h - a line of JSON, and strict access to its members.
//
// nlohmann's parser, which pmenv writes JSON with, reads recordings too slowly; docs/recordings.md has the figures.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <rapidjson/document.h>

namespace recording {

using Value = rapidjson::Value;

/// A line that is not as it should be. `column` counts bytes from 1.
struct BadLine {
    std::string what;
    std::string member = {};  ///< whose value it is; "" for the line as a whole
    std::size_t column = 0;   ///< 0 where only the member is known
};

/// Parses one line after the other in the same memory.
class JsonLine {
public:
    /// The object that the line consists of, until the next call. Throws BadLine.
    const Value& parse(std::string_view line);

private:
    rapidjson::MemoryPoolAllocator<> memory_;
    Value value_;
};

/// The member of an object; null where there is none.
const Value* find(const Value& object, const char* name);

// Each throws BadLine when the member is missing, of another kind, or out of its range.
const Value& member(const Value& object, const char* name);
const Value& memberList(const Value& object, const char* name);
std::int64_t wholeNumber(const Value& value, const char* name, std::int64_t least, std::int64_t most);
std::int64_t memberNumber(const Value& object, const char* name, std::int64_t least, std::int64_t most);
double memberDouble(const Value& object, const char* name, double least, double most);
bool memberFlag(const Value& object, const char* name);
std::string text(const Value& value, const char* name);
std::string memberText(const Value& object, const char* name);
std::vector<std::string> memberTexts(const Value& object, const char* name);

/// Null stands for unknown.
std::optional<std::int64_t> memberNumberOrNull(const Value& object, const char* name, std::int64_t least,
                                               std::int64_t most);
std::optional<double> memberDoubleOrNull(const Value& object, const char* name, double least, double most);

}  // namespace recording
