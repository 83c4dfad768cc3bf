#include "check/rule.h"

// One line for each rule. The rule itself stands in rules/NAME.cpp.
#define CHECK_RULES          \
    RULE(syntax)             \
    RULE(byteOrderMark)      \
    RULE(carriageReturn)     \
    RULE(cycle)              \
    RULE(limit)              \
    RULE(swallowedReference) \
    RULE(usedBeforeDefined)  \
    RULE(undefinedSetting)   \
    RULE(unsetVariable)      \
    RULE(notAReference)      \
    RULE(ownKey)             \
    RULE(duplicateKey)       \
    RULE(differsByCase)      \
    RULE(unreachableName)    \
    RULE(trailingComment)    \
    RULE(oneSidedQuote)      \
    RULE(missingRelease)     \
    RULE(needlessAllow)      \
    RULE(unknownKey)         \
    RULE(wrongType)          \
    RULE(outOfRange)         \
    RULE(missingFile)        \
    RULE(missingKey)         \
    RULE(tooMuchWork)

#define RULE(name) Rule name##Rule();
CHECK_RULES
#undef RULE

const std::vector<Rule>& allRules() {
#define RULE(name) name##Rule(),
    static const std::vector<Rule> rules{CHECK_RULES};
#undef RULE
    return rules;
}

std::vector<std::string> ruleNames() {
    std::vector<std::string> names;
    for (const Rule& rule : allRules()) names.emplace_back(rule.name);
    return names;
}
