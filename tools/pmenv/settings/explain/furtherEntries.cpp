#include "explain/furtherEntries.h"

#include <utility>

#include "failure.h"
#include "krs.h"

FurtherEntries::FurtherEntries(std::string file, Secrets secrets)
    : file_(std::move(file)), secrets_(std::move(secrets)) {
    if (KRSReadLines(file_.c_str(), [this](const KRSLine& line) { add(line); }) != 0) return;
    throw Failure(std::string("cannot load the settings: ") + KRSLoadError());
}

void FurtherEntries::add(const KRSLine& line) {
    if (line.error != nullptr) {
        throw Failure("cannot load the settings: " + file_ + ":" + std::to_string(line.number) + ":" +
                      std::to_string(line.errorColumn) + ": " + line.error);
    }
    if (line.key == nullptr) return;
    const Excerpt value(line.value, secrets_.partsOf(line.key, line.value));
    entries_.push_back({line.key, line.number, line.valueColumn, value, value, {}});
    values_.emplace_back(line.value);
}

std::optional<std::size_t> FurtherEntries::inForce(const std::string& key) const {
    for (std::size_t i = entries_.size(); i-- > 0;) {
        if (entries_[i].key == key) return i;
    }
    return std::nullopt;
}

std::vector<std::string> FurtherEntries::names() const {
    std::vector<std::string> names;
    for (const ObservedEntry& entry : entries_) names.push_back(entry.key);
    return names;
}
