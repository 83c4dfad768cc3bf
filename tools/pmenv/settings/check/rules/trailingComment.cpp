// A comment that has become a part of the value.
#include "check/rule.h"

namespace {

bool isBlank(char character) { return character == ' ' || character == '\t'; }

// "80 ; the port", "80 # the port", but not "a;b", "#fff", "#(NAME)" or the " ; " within brackets.
bool beginsComment(const std::string& value, std::size_t at) {
    if (at > 0 && !isBlank(value[at - 1])) return false;
    if (at + 1 >= value.size()) return false;
    return value[at] == ';' || (value[at] == '#' && isBlank(value[at + 1]));
}

std::size_t commentIn(const std::string& value) {
    int brackets = 0;
    bool quotes = false;
    for (std::size_t at = 0; at < value.size(); ++at) {
        if (value[at] == '"') quotes = !quotes;
        if (value[at] == '(' || value[at] == '{') ++brackets;
        if (value[at] == ')' || value[at] == '}') --brackets;
        if (brackets <= 0 && !quotes && beginsComment(value, at)) return at;
    }
    return std::string::npos;
}

bool isQuoted(const Entry& entry, const SettingsText& settings) {
    const std::string& line = settings.lines()[static_cast<std::size_t>(entry.line) - 1].text;
    const std::size_t end = entry.valueColumn - 1 + entry.value.size();
    return end < line.size() && line[end] == '"' && line[entry.valueColumn - 2] == '"';
}

void checkTrailingComment(const Entry& entry, const SettingsText& settings, Report& report) {
    const std::size_t at = commentIn(entry.value);
    if (at == std::string::npos || isQuoted(entry, settings)) return;
    report.inValue(entry, at, entry.value.size() - at,
                   "this belongs to the value; a comment stands on a line of its own");
}

}  // namespace

Rule trailingCommentRule() {
    return {"trailing-comment",
            Rule::Severity::Warning,
            "What looks like a comment behind a value. ; and # begin a comment only at the beginning of a line; here "
            "they are a part of the value.",
            "Put the comment on a line of its own. Write a value that is meant like this in quotes.",
            "PORT = 8080 ; for tests\n",
            "; for tests\nPORT = 8080\n",
            checkTrailingComment};
}
