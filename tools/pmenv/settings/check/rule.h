// rule.h - a rule of `pmenv check`: what it is called, what users are told of it, and how it finds what it is about.
//
// A rule looks at one thing at a time: a line, an entry, the expansion of an entry's value, a comment that allows a
// finding, or the file as a whole. It reports what it finds; who calls it, in which order findings are shown and how is
// not its matter.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "check/allowance.h"
#include "check/expansion.h"
#include "check/settingsText.h"

struct Rule;

struct CheckFinding {
    const Rule* rule;
    int line;            ///< from 1
    std::size_t column;  ///< in bytes, from 1
    std::size_t length;  ///< how many bytes of the line are meant
    std::string text;
};

/// Where a rule reports.
class Report {
public:
    Report(const SettingsText& settings, const Rule& rule, std::vector<CheckFinding>& findings)
        : settings_(settings), rule_(rule), findings_(findings) {}

    void at(int line, std::size_t column, std::size_t length, std::string text);
    void atKey(const Entry& entry, std::string text);
    void atValue(const Entry& entry, std::string text);
    /// A part of the entry's value.
    void inValue(const Entry& entry, std::size_t position, std::size_t length, std::string text);
    /// Where the reference is written. When that is not in the entry's value, the text tells where it comes from.
    void atReference(const Entry& entry, const Reference& reference, const std::string& text);

private:
    void add(int line, std::size_t column, std::size_t length, std::string text);

    const SettingsText& settings_;
    const Rule& rule_;
    std::vector<CheckFinding>& findings_;
};

using LineCheck = void (*)(const SettingsLine&, const SettingsText&, Report&);
using EntryCheck = void (*)(const Entry&, const SettingsText&, Report&);
using ExpansionCheck = void (*)(const Expansion&, const SettingsText&, Report&);
using AllowanceCheck = void (*)(const Allowance&, const SettingsText&, Report&);
using FileCheck = void (*)(const SettingsText&, Report&);

struct Rule {
    enum class Severity { Error, Warning };
    /// What decides whether the rule finds something: the files alone, or also the host that they are checked on.
    enum class DependsOn { Files, Host };
    /// Whether the rule is about what the product knows, and so is applied only where that is known.
    enum class Needs { Nothing, KnownKeys };

    const char* name;
    Severity severity;
    const char* description;  ///< a paragraph
    const char* repair;       ///< what to do about it
    const char* example;  ///< a settings file in which the rule finds something; null where that takes too many lines
    const char* instead;  ///< the same, put right
    std::variant<LineCheck, EntryCheck, ExpansionCheck, AllowanceCheck, FileCheck> check;
    DependsOn dependsOn = DependsOn::Files;
    Needs needs = Needs::Nothing;

    bool isError() const { return severity == Severity::Error; }
};

/// All rules, in the order in which findings at the same place are shown.
const std::vector<Rule>& allRules();
std::vector<std::string> ruleNames();

// --- texts that several rules use -----------------------------------------------------------------------------------

/// 'text', the beginning of a very long one.
std::string quoted(const std::string& text);

/// "line 7".
std::string onLine(int line);

/// The value that a program reads, and what the product knows of its key; nothing for another expansion.
struct KnownValue {
    const KnownKey& key;
    const std::string& value;
    const HiddenParts& hidden;  ///< what of the value must not be shown
};
std::optional<KnownValue> knownValue(const Expansion& expansion, const SettingsText& settings);
