#include "knownKeys/knownKeys.h"

#include <utility>

namespace {

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

const char* nameOf(KnownKey::Type type) {
    switch (type) {
        case KnownKey::Type::Text:
            return "a text";
        case KnownKey::Type::Integer:
            return "an integer";
        case KnownKey::Type::Number:
            return "a number";
        case KnownKey::Type::Boolean:
            return "yes or no (true or false, on or off, 1 or 0)";
        case KnownKey::Type::Path:
            return "a path";
        case KnownKey::Type::File:
            return "a file that must exist";
        case KnownKey::Type::Choice:
            break;
    }
    return "one of ";
}

}  // namespace

std::string KnownKey::typeText() const {
    std::string text = nameOf(type) + joined(values);
    if (least) text += (most ? " from " : " of at least ") + least->text;
    if (most) text += (least ? " to " : " of at most ") + most->text;
    return unit.empty() ? text : text + ", in " + unit;
}

std::string KnownKey::helpText() const { return help.empty() ? typeText() : help + " (" + typeText() + ")"; }

KnownKeys::KnownKeys(std::string file, std::vector<KnownKey> keys) : file_(std::move(file)), keys_(std::move(keys)) {
    for (const KnownKey& key : keys_) {
        byName_.emplace(key.name, names_.size());
        names_.push_back(key.name);
    }
}

const KnownKey* KnownKeys::find(const std::string& name) const {
    const auto found = byName_.find(name);
    return found != byName_.end() ? &keys_[found->second] : nullptr;
}
