#include "diff/comparison.h"

#include <utility>

#include "explain/explanationText.h"

namespace {

ComparedValue comparedOf(const Side& side, const SideValue& value) {
    const ObservedEntry& entry = side.settings->entries()[value.entry];
    return {{entry.line, entry.column}, value.shown, value.problem};
}

// Entries of the key that the load has left out.
std::string leftOutText(const Side& side, const std::string& key) {
    const std::vector<std::size_t>& entries = side.settings->entriesOf(key);
    if (entries.empty()) return "";
    const ObservedEntry& entry = side.settings->entries()[entries.back()];
    return "line " + std::to_string(entry.line) + " is left out there, " +
           failureText({reasonOf(entry.load.failure->why)});
}

// Values that cannot be read are alike: programs get nothing on either side.
bool isSame(const SideValue& a, const SideValue& b) { return a.text == b.text; }

Difference onlyIn(std::optional<ComparedValue> a, std::optional<ComparedValue> b, const Side& other,
                  const std::string& key) {
    return {key, std::move(a), std::move(b), leftOutText(other, key)};
}

}  // namespace

bool Difference::isHidden() const {
    return a && b && a->shown && b->shown && a->shown->text == b->shown->text && (a->shown->hides || b->shown->hides);
}

Comparison compareSides(const Side& a, const Side& b) {
    Comparison comparison{a.name, b.name, {}};
    CauseFinder finder(a, b);
    for (const std::string& key : a.keys) {
        const SideValue& value = *a.find(key);
        const SideValue* const other = b.find(key);
        if (other == nullptr) {
            comparison.differences.push_back(onlyIn(comparedOf(a, value), std::nullopt, b, key));
        } else if (isSame(value, *other)) {
            ++comparison.same;
        } else {
            comparison.differences.push_back({key, comparedOf(a, value), comparedOf(b, *other), "", finder.of(key)});
        }
    }
    for (const std::string& key : b.keys) {
        if (a.find(key) != nullptr) continue;
        comparison.differences.push_back(onlyIn(std::nullopt, comparedOf(b, *b.find(key)), a, key));
    }
    return comparison;
}
