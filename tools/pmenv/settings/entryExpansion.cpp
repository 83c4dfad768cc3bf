#include "entryExpansion.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

std::size_t hashOf(std::string_view text) { return std::hash<std::string_view>()(text); }

}  // namespace

void WorkLimit::spend(std::uint64_t characters) {
    if (characters > left_) throw Exceeded();
    left_ -= characters;
}

void ExpansionWatch::found(const KRSReference& reference) {
    constexpr std::size_t kSubstitution = 1024;  // the work for a reference, in characters of searching
    const std::size_t valueLength = reference.value != nullptr ? std::strlen(reference.value) : 0;
    work_.spend(kSubstitution + reference.position + reference.length + valueLength);

    if (reference.value == nullptr && inOwnText()) noteEmpty(reference);
    constexpr std::size_t kLongestName = 200;
    const char* const name = reference.text + reference.position + 2;
    levels_.push_back({{name, std::min(reference.length - 3, kLongestName)},
                       reference.isVariable(),
                       hashOf({reference.value != nullptr ? reference.value : "", valueLength})});
    settingLevels_ += reference.isVariable() ? 0 : 1;
}

// In the entry's own value, or in that of a process variable, which no line of the file could be blamed for.
bool ExpansionWatch::inOwnText() const { return settingLevels_ == 0; }

void ExpansionWatch::noteEmpty(const KRSReference& reference) {
    if (!noted_.insert(reference.written()).second) return;
    expansion_.empty.push_back({reference.written(), reference.name(), reference.isVariable(),
                                levels_.size() == 1 ? "" : levels_.back().name});
}

void ExpansionWatch::resolved(const char* /*value*/) {
    settingLevels_ -= levels_.back().isVariable ? 0 : 1;
    levels_.pop_back();
}

void ExpansionWatch::failed(KRSResolveFailure why, const char* /*text*/) {
    expansion_.failure = why;
    expansion_.chain = levels_;
    if (why == KRSResolveFailure::Cycle) closeCycle();
}

// The last text equals one before it. What that one leads to comes next, unless it is the last text's own name.
void ExpansionWatch::closeCycle() {
    std::vector<ChainLink>& chain = expansion_.chain;
    const std::size_t hash = chain.back().valueHash;
    const auto equal =
        std::find_if(chain.begin(), chain.end(), [=](const ChainLink& link) { return link.valueHash == hash; });
    const bool closed = equal->name == chain.back().name && equal->isVariable == chain.back().isVariable;
    if (!closed) chain.push_back(*std::next(equal));
}

void ExpansionWatch::begun(const char* key, const char* value) { levels_.push_back({key, false, hashOf(value)}); }

void ExpansionWatch::ended(const char* /*value*/) { loaded_.push_back(take()); }

EntryExpansion ExpansionWatch::take() {
    levels_.clear();
    settingLevels_ = 0;
    noted_.clear();
    return std::exchange(expansion_, {});
}
