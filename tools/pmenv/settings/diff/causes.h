// causes.h - why a setting is another on the other side: the lines, variables and missing names that make the difference.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diff/side.h"
#include "explain/explanation.h"

/// What one side has where the other has something else.
struct CauseSide {
    std::optional<FilePlace> place{};  ///< of a setting's value
    std::optional<Excerpt>
        text{};            ///< that value as the file has it, or that of the variable; none where it is not defined
    int definedBelow = 0;  ///< the line of the setting that did not exist yet
};

struct Cause {
    std::vector<Excerpt> through{};      ///< references that lead from the setting to the cause, the first of many
    std::size_t throughLeftOut = 0;      ///< how many more there are
    std::optional<Excerpt> reference{};  ///< none when it is the setting's own text
    bool isVariable = false;
    bool isKnown = true;  ///< false when this reference comes out differently, and why was not observed
    CauseSide a{};
    CauseSide b{};
};

struct Causes {
    std::vector<Cause> list;
    std::size_t more = 0;  ///< how many are left out
};

class CauseFinder {
public:
    CauseFinder(const Side& a, const Side& b) : a_(a), b_(b) {}

    /// Of a setting that both sides have, each with another value.
    const Causes& of(const std::string& key);

private:
    using Steps = std::vector<ObservedStep>;
    using EntryPair = std::pair<std::size_t, std::size_t>;

    const Causes& ofEntries(EntryPair entries);
    void compare(Causes& causes, const Steps& a, const Steps& b, bool atLoad);
    void compare(Causes& causes, const ObservedStep& a, const ObservedStep& b, bool atLoad);
    Causes inside(const ObservedStep& a, const ObservedStep& b, bool atLoad);
    CauseSide sideOf(const Side& side, const ObservedStep& step) const;

    const Side& a_;
    const Side& b_;
    std::map<std::string, Causes> ofSettings_;
    std::map<EntryPair, Causes> ofEntries_;
    std::size_t levels_ = 0;
};
