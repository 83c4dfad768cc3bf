#include "check/allowance.h"

#include <algorithm>
#include <optional>

namespace {

constexpr char kBlanks[] = " \t\r";
constexpr char kMark[] = "pmenv:";

std::size_t wordAt(const std::string& text, std::size_t from) {
    return std::min(text.find_first_not_of(kBlanks, from), text.size());
}

std::size_t wordEnd(const std::string& text, std::size_t from) {
    return std::min(text.find_first_of(kBlanks, from), text.size());
}

std::optional<Allowance> allowanceIn(const SettingsLine& line) {
    const std::string& text = line.text;
    const std::size_t sign = wordAt(text, 0);
    if (sign == text.size() || (text[sign] != ';' && text[sign] != '#')) return std::nullopt;
    const std::size_t mark = wordAt(text, sign + 1);
    if (text.compare(mark, sizeof kMark - 1, kMark) != 0) return std::nullopt;
    const std::size_t command = wordAt(text, mark + sizeof kMark - 1);
    const std::size_t commandEnd = wordEnd(text, command);
    const std::size_t rule = wordAt(text, commandEnd);
    const std::size_t ruleEnd = wordEnd(text, rule);
    const std::size_t end = ruleEnd > rule ? ruleEnd : commandEnd;
    return Allowance{line.number,
                     command + 1,
                     std::max<std::size_t>(end - command, 1),
                     text.substr(command, commandEnd - command),
                     text.substr(rule, ruleEnd - rule),
                     0};
}

}  // namespace

std::vector<Allowance> allowancesIn(const std::vector<SettingsLine>& lines) {
    std::vector<Allowance> allowances;
    for (const SettingsLine& line : lines) {
        if (std::optional<Allowance> allowance = allowanceIn(line)) allowances.push_back(std::move(*allowance));
    }
    for (std::size_t i = allowances.size(); i-- > 0;) {
        const bool isFollowed = i + 1 < allowances.size() && allowances[i + 1].line == allowances[i].line + 1;
        allowances[i].allowedLine = isFollowed ? allowances[i + 1].allowedLine : allowances[i].line + 1;
    }
    return allowances;
}
