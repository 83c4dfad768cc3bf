#include "check/keysDraft.h"

#include "check/expansion.h"
#include "knownKeys/knownKeys.h"
#include "settings.h"
#include "text.h"

namespace {

bool looksLikePath(const std::string& value) {
    return value.compare(0, 1, "/") == 0 && value.find_first_of(": \t,;") == std::string::npos;
}

// What another host's variables would make of the value is not known.
bool refersToVariables(const std::string& value) {
    return value.find("$(") != std::string::npos || value.find("${") != std::string::npos;
}

// A section's name reaches to the first ']'.
bool canBeDescribed(const std::string& key) { return key.find(']') == std::string::npos; }

}  // namespace

KeysDraft::Guess& KeysDraft::guessFor(const std::string& key) {
    const auto [known, isNew] = byKey_.emplace(key, guesses_.size());
    if (isNew) guesses_.push_back({key});
    return guesses_[known->second];
}

void KeysDraft::narrow(Guess& guess, const std::string& value) {
    guess.isRead = true;
    guess.isInteger = guess.isInteger && isInteger(value);
    guess.isNumber = guess.isNumber && decimalNumber(value).has_value();
    guess.isBoolean = guess.isBoolean && isBoolean(value);
    guess.isPath = guess.isPath && looksLikePath(value);
}

void KeysDraft::add(const std::string& path, const std::string& name) {
    SettingsText settings(path, name, FileKind::Pressmark, {});
    files_.push_back(name);
    for (const Entry& entry : settings.entries()) guessFor(entry.key);
    expandAll(settings, "", [&](const Expansion& expansion) {
        if (expansion.when != Expansion::When::Reading) return;
        const bool isKnown = expansion.text && expansion.text->size() <= kLongestExpansion;
        Guess& guess = guessFor(expansion.entry->key);
        narrow(guess, isKnown ? *expansion.text : "");
        if (refersToVariables(expansion.entry->value)) guess.isInteger = guess.isNumber = guess.isBoolean = false;
    });
}

const char* KeysDraft::typeOf(const Guess& guess) {
    if (!guess.isRead) return "text";
    if (guess.isInteger) return "integer";
    if (guess.isNumber) return "number";
    if (guess.isBoolean) return "boolean";
    return guess.isPath ? "path" : "text";
}

std::string KeysDraft::text() const {
    std::string text = "; The settings that the product knows, drafted from";
    for (const std::string& file : files_) text += " " + printable(file);
    text +=
        ".\n; The types are guessed. Look at each, and add what else is known: least, most and unit of a number, "
        "values of a"
        "\n; choice, required = yes, secret = yes, and a line of help.\n";
    for (const Guess& guess : guesses_) {
        if (guess.key == kKeysSetting) continue;
        if (canBeDescribed(guess.key)) {
            text += "\n[" + guess.key + "]\ntype = " + typeOf(guess) + "\nhelp =\n";
        } else {
            text += "\n; A name with a ']' cannot be described: " + printable(guess.key) + "\n";
        }
    }
    return text;
}
