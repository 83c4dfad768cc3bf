#include "sectionName.h"

std::optional<SectionName> sectionIn(std::string_view line) {
    constexpr char kBlank[] = " \t";
    const std::size_t bracket = line.find_first_not_of(kBlank);
    if (bracket == std::string_view::npos || line[bracket] != '[') return std::nullopt;
    const std::size_t begin = line.find_first_not_of(kBlank, bracket + 1);
    const std::size_t end = line.find_last_not_of(kBlank, line.find(']') - 1) + 1;
    return SectionName{end > begin ? std::string(line.substr(begin, end - begin)) : "", begin + 1};
}
