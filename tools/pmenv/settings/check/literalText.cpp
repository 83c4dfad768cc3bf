#include "check/literalText.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr char kSigns[] = "$#";

bool isLetter(char character) { return std::isalnum(static_cast<unsigned char>(character)) || character == '_'; }
bool isClosing(char character) { return character == ')' || character == '}'; }
bool isLower(char character) { return std::islower(static_cast<unsigned char>(character)); }

std::size_t endOfVariable(const std::string& text, std::size_t position) {
    while (position < text.size() && isLetter(text[position])) ++position;
    return position;
}

// Settings have sections, section.KEY, and often dashes.
std::size_t endOfName(const std::string& text, std::size_t position) {
    while (position < text.size() && (isLetter(text[position]) || text[position] == '.' || text[position] == '-')) {
        ++position;
    }
    return position;
}

bool beginsReference(const std::string& text, std::size_t position) {
    if (position + 1 >= text.size() || std::strchr(kSigns, text[position]) == nullptr) return false;
    return text[position + 1] == '(' || text[position + 1] == '{';
}

// Where the bracket that begins at `position` is closed: behind the closing one. npos when another reference begins
// before that, or when it is not closed at all.
std::size_t endOfBracket(const std::string& text, std::size_t position) {
    const char close = text[position + 1] == '(' ? ')' : '}';
    for (std::size_t at = position + 2; at < text.size(); ++at) {
        if (text[at] == close) return at + 1;
        if (beginsReference(text, at)) break;
    }
    return std::string::npos;
}

// "$( NAME )", "#{}", "$(NAME" with what could have been meant for the name. Not "$(date +%F)" or "${A:-b c}", which
// are no mistyped references but texts for a shell.
std::size_t lengthOfOpening(const std::string& text, std::size_t position) {
    if (!beginsReference(text, position)) return 0;
    const std::size_t name = std::min(text.find_first_not_of(" \t", position + 2), text.size());
    const std::size_t nameEnd = endOfName(text, name);
    const std::size_t end = endOfBracket(text, position);
    if (end == std::string::npos)
        return nameEnd - position + (nameEnd < text.size() && isClosing(text[nameEnd]) ? 1 : 0);
    return text.find_first_not_of(" \t", nameEnd) == end - 1 ? end - position : 0;
}

// "$HOME", but not "$5", "\\$HOME", "$$HOME" or the "$word" of a password: a variable that is set, or at least spelled
// like one.
std::size_t lengthOfBareVariable(const std::string& text, std::size_t position) {
    if (text[position] != '$') return 0;
    if (position > 0 && (text[position - 1] == '\\' || text[position - 1] == '$')) return 0;
    const std::size_t end = endOfVariable(text, position + 1);
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
        std::string text = "'" + written + "' is no reference and stays as it stands; ";
        text += opening != 0 ? "a reference is written " + written.substr(0, 1) + "(NAME), without blanks"
                             : "an environment variable is written $(" + written.substr(1) + ")";
        texts.push_back({at, length, std::move(text)});
    }
    return texts;
}
