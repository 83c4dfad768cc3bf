// checkRules.h - what `pmenv check` looks for.
#pragma once

#include <cstddef>

enum class Rule {
    Syntax,
    Cycle,
    Limit,
    SwallowedReference,
    UsedBeforeDefined,
    UndefinedSetting,
    UnsetVariable,
    NotAReference,
    DuplicateKey,
    MissingRelease,
    TooMuchWork
};
constexpr std::size_t kRules = 11;

struct RuleDescription {
    const char* name;
    bool isError;  ///< otherwise a warning
    const char* paragraph;
};

const RuleDescription& describe(Rule rule);
