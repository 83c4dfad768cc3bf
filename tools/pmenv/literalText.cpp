#include "literalText.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace {

constexpr char kSigns[] = "$#";

bool isNameCharacter(char character) { return std::isalnum(static_cast<unsigned char>(character)) || character == '_'; }
bool isLower(char character) { return std::islower(static_cast<unsigned char>(character)); }

std::size_t endOfName(const std::string& text, std::size_t position) {
    while (position < text.size() && isNameCharacter(text[position])) ++position;
    return position;
}

// "$(", "#{", ...: with what is written behind it, up to the end of the name that it may have been meant for.
std::size_t lengthOfOpening(const std::string& text, std::size_t position) {
    const char open = position + 1 < text.size() ? text[position + 1] : '\0';
    if (open != '(' && open != '{') return 0;
    const std::size_t name = std::min(text.find_first_not_of(" \t", position + 2), text.size());
    const std::size_t end = endOfName(text, name);
    const bool closed = end < text.size() && (text[end] == ')' || text[end] == '}');
    return end + (closed ? 1 : 0) - position;
}

// "$HOME", but not "$5", "$$" or the "$word" of a price list or a password: a variable that is set, or at least spelled
// like one.
std::size_t lengthOfBareVariable(const std::string& text, std::size_t position) {
    if (text[position] != '$') return 0;
    const std::size_t end = endOfName(text, position + 1);
    const std::string name = text.substr(position + 1, end - position - 1);
    if (name.size() < 2 || std::isdigit(static_cast<unsigned char>(name[0]))) return 0;
    const bool spelledLikeOne = std::none_of(name.begin(), name.end(), isLower);
    return spelledLikeOne || std::getenv(name.c_str()) != nullptr ? end - position : 0;
}

}  // namespace

std::vector<LiteralText> literalTexts(const std::string& value, const std::string& expanded) {
    constexpr std::size_t kMost = 20;  // of one value; more would tell nothing new
    std::vector<LiteralText> texts;
    std::size_t behindLast = 0;  // in the expanded form, which keeps the order
    for (std::size_t at = value.find_first_of(kSigns); at != std::string::npos && texts.size() < kMost;
         at = value.find_first_of(kSigns, at + 1)) {
        const std::size_t opening = lengthOfOpening(value, at);
        const std::size_t length = opening != 0 ? opening : lengthOfBareVariable(value, at);
        if (length == 0) continue;
        const std::string written = value.substr(at, length);
        const std::size_t still = expanded.find(written, behindLast);
        if (still == std::string::npos) continue;
        behindLast = still + length;
        const std::string advice = opening != 0
                                       ? "; a reference is written " + written.substr(0, 1) + "(NAME), without blanks"
                                       : "; a process variable is written $(" + written.substr(1) + ")";
        texts.push_back({at, length, "'" + written + "' is no reference and stays as it stands" + advice});
    }
    return texts;
}
