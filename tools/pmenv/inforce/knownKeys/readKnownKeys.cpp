// Reads a file of known keys: first what it says, then what that means, and all mistakes on the way.
#include <algorithm>
#include <tuple>
#include <utility>

#include "failure.h"
#include "knownKeys/knownKeys.h"
#include "krs.h"
#include "nearest.h"
#include "sectionName.h"

namespace {

using Type = KnownKey::Type;

// --- mistakes -------------------------------------------------------------------------------------------------------

struct Position {
    int line;
    std::size_t column;
};

struct Mistake {
    Position place;
    std::string text;
};

class Mistakes {
public:
    void add(Position place, std::string text) { mistakes_.push_back({place, std::move(text)}); }

    // Throws them, if there are any, in the order of the file.
    void throwFor(const std::string& file);

private:
    std::vector<Mistake> mistakes_;
};

void Mistakes::throwFor(const std::string& file) {
    constexpr std::size_t kMost = 50;
    if (mistakes_.empty()) return;
    std::stable_sort(mistakes_.begin(), mistakes_.end(), [](const Mistake& a, const Mistake& b) {
        return std::tie(a.place.line, a.place.column) < std::tie(b.place.line, b.place.column);
    });
    std::string text = "cannot use the known keys:";
    for (std::size_t i = 0; i < std::min(kMost, mistakes_.size()); ++i) {
        const Mistake& mistake = mistakes_[i];
        text += "\n" + file + ":" + std::to_string(mistake.place.line) + ":" + std::to_string(mistake.place.column) +
                ": error: " + mistake.text;
    }
    if (mistakes_.size() > kMost) text += "\nand " + std::to_string(mistakes_.size() - kMost) + " more";
    throw Failure(text);
}

// --- what the file says ---------------------------------------------------------------------------------------------

struct Property {
    std::string name;
    std::string value;
    Position namePlace;
    Position valuePlace;
};

// What it says of one setting.
struct Description {
    std::string name;
    Position place;
    std::vector<Property> properties{};

    const Property* find(const std::string& property) const {
        const auto found = std::find_if(properties.begin(), properties.end(),
                                        [&](const Property& each) { return each.name == property; });
        return found != properties.end() ? &*found : nullptr;
    }
};

class Reader {
public:
    explicit Reader(Mistakes& mistakes) : mistakes_(mistakes) {}

    std::vector<Description> read(const std::string& file);

private:
    void take(const KRSLine& line);
    void begin(const std::string& name, Position place);
    void addProperty(Property property);

    Mistakes& mistakes_;
    std::vector<Description> descriptions_;
    std::unordered_map<std::string, int> lines_;  // of the settings described so far
    std::string section_;
};

std::vector<Description> Reader::read(const std::string& file) {
    const int read = KRSReadLines(file.c_str(), [this](const KRSLine& line) { take(line); });
    if (read == 0) throw Failure(std::string("cannot read the known keys: ") + KRSLoadError());
    return std::move(descriptions_);
}

void Reader::take(const KRSLine& line) {
    if (line.error != nullptr) return mistakes_.add({line.number, line.errorColumn}, line.error);
    if (line.key == nullptr) {
        if (const auto section = sectionIn(line.text)) begin(section->name, {line.number, section->column});
        return;
    }
    const std::size_t prefix = section_.empty() ? 0 : section_.size() + 1;
    addProperty({line.key + prefix, line.value, {line.number, line.keyColumn}, {line.number, line.valueColumn}});
}

void Reader::begin(const std::string& name, Position place) {
    section_ = name;
    if (name.empty()) return;
    const auto [known, isNew] = lines_.emplace(name, place.line);
    if (!isNew)
        mistakes_.add(place, "'" + name + "' is described on line " + std::to_string(known->second) + " already");
    descriptions_.push_back({name, place});
}

void Reader::addProperty(Property property) {
    if (section_.empty()) {
        return mistakes_.add(property.namePlace, "'" + property.name +
                                                     "' stands outside of a section; a [NAME] begins "
                                                     "the description of the setting NAME");
    }
    Description& description = descriptions_.back();
    if (description.find(property.name) == nullptr) return description.properties.push_back(std::move(property));
    mistakes_.add(property.namePlace, "'" + property.name + "' of '" + section_ + "' is set again");
}

// --- what that means ------------------------------------------------------------------------------------------------

constexpr std::pair<const char*, Type> kTypes[] = {
    {"text", Type::Text}, {"integer", Type::Integer}, {"number", Type::Number}, {"boolean", Type::Boolean},
    {"path", Type::Path}, {"file", Type::File},       {"choice", Type::Choice}};

const std::vector<std::string> kProperties{"type", "least", "most", "unit", "values", "required", "secret", "help"};

std::vector<std::string> typeNames() {
    std::vector<std::string> names;
    for (const auto& type : kTypes) names.emplace_back(type.first);
    return names;
}

// "a, b,,c " is a, b and c.
std::vector<std::string> listOf(const std::string& text) {
    std::vector<std::string> values;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        const std::size_t first = text.find_first_not_of(" \t", at);
        if (first < end) values.push_back(text.substr(first, text.find_last_not_of(" \t", end - 1) + 1 - first));
        at = end + 1;
    }
    return values;
}

// One setting, from its description.
class Meaning {
public:
    Meaning(const Description& description, Mistakes& mistakes) : description_(description), mistakes_(mistakes) {}

    KnownKey key();

private:
    void checkNames();
    Type type();
    std::optional<KnownKey::Limit> limit(const char* property);
    bool yes(const char* property);
    std::string text(const char* property);
    void refuse(const char* property, const std::string& of);
    void checkLimits(const KnownKey& key);

    const Description& description_;
    Mistakes& mistakes_;
};

KnownKey Meaning::key() {
    checkNames();
    KnownKey key{description_.name, type()};
    key.least = limit("least");
    key.most = limit("most");
    key.unit = text("unit");
    key.values = listOf(text("values"));
    key.isRequired = yes("required");
    key.isSecret = yes("secret");
    key.help = text("help");
    if (!key.isNumeric()) {
        for (const char* const property : {"least", "most", "unit"}) refuse(property, "integer or number");
    }
    if (key.type != Type::Choice) refuse("values", "choice");
    if (key.type == Type::Choice && key.values.empty()) {
        mistakes_.add(description_.place, "'" + key.name + "' is a choice without values; write values = A, B");
    }
    checkLimits(key);
    return key;
}

void Meaning::checkNames() {
    for (const Property& property : description_.properties) {
        if (std::find(kProperties.begin(), kProperties.end(), property.name) != kProperties.end()) continue;
        mistakes_.add(property.namePlace, "a setting has no property '" + property.name + "'" +
                                              didYouMean(nearestNames(property.name, kProperties)));
    }
}

Type Meaning::type() {
    const Property* const property = description_.find("type");
    if (property == nullptr) return Type::Text;
    for (const auto& [name, type] : kTypes) {
        if (property->value == name) return type;
    }
    const std::string nearest = didYouMean(nearestNames(property->value, typeNames()));
    mistakes_.add(property->valuePlace, "there is no type '" + property->value + "'" +
                                            (nearest.empty() ? "; the types are text, integer, number, boolean, path, "
                                                               "file and choice"
                                                             : nearest));
    return Type::Text;
}

std::optional<KnownKey::Limit> Meaning::limit(const char* name) {
    const Property* const property = description_.find(name);
    if (property == nullptr) return std::nullopt;
    if (const std::optional<double> value = decimalNumber(property->value)) return {{*value, property->value}};
    mistakes_.add(property->valuePlace, "'" + property->value + "' is no number");
    return std::nullopt;
}

bool Meaning::yes(const char* name) {
    const Property* const property = description_.find(name);
    if (property == nullptr || property->value == "no") return false;
    // Not quoted: in settings that were taken for known keys, `secret` may hold one.
    if (property->value != "yes") mistakes_.add(property->valuePlace, std::string(name) + " is yes or no");
    return property->value == "yes";
}

std::string Meaning::text(const char* name) {
    const Property* const property = description_.find(name);
    return property != nullptr ? property->value : "";
}

// A property that only settings of another type have.
void Meaning::refuse(const char* name, const std::string& of) {
    const Property* const property = description_.find(name);
    if (property == nullptr) return;
    mistakes_.add(property->namePlace, std::string("only a setting of type ") + of + " has " + name);
}

void Meaning::checkLimits(const KnownKey& key) {
    if (!key.least || !key.most || key.least->value <= key.most->value) return;
    mistakes_.add(description_.find("most")->valuePlace,
                  key.most->text + " is less than " + key.least->text + ", the least value of '" + key.name + "'");
}

}  // namespace

KnownKeys readKnownKeys(const std::string& file) {
    Mistakes mistakes;
    std::vector<KnownKey> keys;
    for (const Description& description : Reader(mistakes).read(file)) {
        keys.push_back(Meaning(description, mistakes).key());
    }
    mistakes.throwFor(file);
    return {file, std::move(keys)};
}
