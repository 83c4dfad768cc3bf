#include "hiddenParts.h"

#include <algorithm>
#include <iterator>

#include "text.h"

namespace {

// Beyond that, all from the first to the last is hidden, so that a text with very many takes no longer.
constexpr std::size_t kMostParts = 64;

}  // namespace

void HiddenParts::append(std::size_t begin, std::size_t end) {
    if (begin >= end) return;
    if (!parts_.empty() && begin <= parts_.back().end) {
        parts_.back().end = std::max(parts_.back().end, end);
    } else {
        parts_.push_back({begin, end});
    }
    if (parts_.size() > kMostParts) parts_ = {{parts_.front().begin, parts_.back().end}};
}

void HiddenParts::unite(const HiddenParts& other) {
    if (!other.any()) return;
    std::vector<Part> all;
    std::merge(parts_.begin(), parts_.end(), other.parts_.begin(), other.parts_.end(), std::back_inserter(all),
               [](const Part& a, const Part& b) { return a.begin < b.begin; });
    parts_.clear();
    for (const Part& part : all) append(part.begin, part.end);
}

void HiddenParts::replace(std::size_t position, std::size_t length, const HiddenParts& value, std::size_t valueLength) {
    if (!any() && !value.any()) return;
    const std::size_t end = position + length;
    HiddenParts changed;
    for (const Part& part : parts_) changed.append(part.begin, std::min(part.end, position));
    for (const Part& part : value.parts_) changed.append(position + part.begin, position + part.end);
    for (const Part& part : parts_) {
        if (part.end > end)
            changed.append(std::max(part.begin, end) - length + valueLength, part.end - length + valueLength);
    }
    *this = std::move(changed);
}

bool HiddenParts::overlap(std::size_t position, std::size_t length) const {
    return std::any_of(parts_.begin(), parts_.end(),
                       [=](const Part& part) { return part.begin < position + length && part.end > position; });
}

HiddenParts HiddenParts::within(std::size_t position, std::size_t length) const {
    HiddenParts inside;
    for (const Part& part : parts_) {
        const std::size_t end = std::min(part.end, position + length);
        if (end > position) inside.append(std::max(part.begin, position) - position, end - position);
    }
    return inside;
}

std::pair<std::size_t, std::size_t> HiddenParts::around(std::size_t position) const {
    for (const Part& part : parts_) {
        if (part.begin <= position && position < part.end) return {part.begin, part.end};
    }
    return {position, position};
}

std::string HiddenParts::shown(std::string_view text) const {
    std::string shown;
    std::size_t from = 0;
    for (const Part& part : parts_) {
        shown.append(text.substr(from, part.begin - from)).append(kShown);
        from = part.end;
    }
    return shown.append(text.substr(std::min(from, text.size())));
}

std::string unmistakable(const std::string& shown, bool hides) {
    return hides && shown == HiddenParts::kShown ? shown : unmistakable(shown);
}
