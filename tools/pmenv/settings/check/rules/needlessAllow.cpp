// A comment that allows what is not found.
#include <algorithm>

#include "check/rule.h"
#include "nearest.h"

namespace {

std::string problemOf(const Allowance& allowance) {
    if (allowance.command != "allow" || allowance.rule.empty()) return "write ; pmenv: allow RULE";
    const std::vector<std::string> names = ruleNames();
    if (std::find(names.begin(), names.end(), allowance.rule) == names.end()) {
        return "there is no rule " + quoted(allowance.rule) + didYouMean(nearestNames(allowance.rule, names));
    }
    if (!allowance.isNeedless) return "";
    return onLine(allowance.allowedLine) + " has no finding of " + quoted(allowance.rule) +
           " that this comment could allow; remove the comment";
}

void checkNeedlessAllow(const Allowance& allowance, const SettingsText& /*settings*/, Report& report) {
    std::string problem = problemOf(allowance);
    if (!problem.empty()) report.at(allowance.line, allowance.column, allowance.length, std::move(problem));
}

}  // namespace

Rule needlessAllowRule() {
    return {"needless-allow",
            Rule::Severity::Warning,
            "A comment '; pmenv: allow RULE' that allows nothing: the next line has no finding of that rule, each of "
            "them is allowed by another comment, or there is no such rule. It would hide a later mistake. A comment "
            "for a rule whose findings depend on the host, or that is switched off, is left alone.",
            "Remove the comment, or correct the name of the rule; 'pmenv check --rules' prints all rules.",
            "; pmenv: allow duplicate-key\nLIST = a\n",
            "LIST = b\n; pmenv: allow duplicate-key\nLIST = a\n",
            checkNeedlessAllow};
}
