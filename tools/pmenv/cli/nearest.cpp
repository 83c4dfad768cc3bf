#include "nearest.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

char lower(char character) { return static_cast<char>(std::tolower(static_cast<unsigned char>(character))); }

// How many letters must be inserted, removed, changed or swapped with their neighbour to turn `b` into `a`, ignoring
// case.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> beforeLast(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
            const bool swapped =
                i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1]);
            if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
    }
    return row[b.size()];
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::size_t lengthsApart(const std::string& a, const std::string& b) {
    return std::max(a.size(), b.size()) - std::min(a.size(), b.size());
}

// None for the key of a section that `name` lacks.
std::size_t distanceOf(const std::string& name, const std::string& candidate, std::size_t limit) {
    if (endsWith(candidate, "." + name)) return 0;
    return lengthsApart(name, candidate) > limit ? limit + 1 : editDistance(name, candidate);
}

}  // namespace

std::vector<std::string> nearestNames(const std::string& name, const std::vector<std::string>& known) {
    constexpr std::size_t kLongestName = 100;         // nobody mistypes a longer one
    const std::size_t limit = (name.size() + 1) / 3;  // one letter of two to four, two of five to seven, ...
    if (name.empty() || name.size() > kLongestName) return {};

    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string& candidate : known) {
        const std::size_t distance = distanceOf(name, candidate, limit);
        if (distance <= limit) near.emplace_back(distance, candidate);
    }
    std::sort(near.begin(), near.end());
    near.erase(std::unique(near.begin(), near.end()), near.end());

    std::vector<std::string> names;
    for (std::size_t i = 0; i < near.size() && i < 3; ++i) names.push_back(near[i].second);
    return names;
}

std::string didYouMean(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text += i == 0 ? "; did you mean '" : i + 1 < names.size() ? ", '" : " or '";
        text += names[i] + "'";
    }
    return text.empty() ? text : text + "?";
}
