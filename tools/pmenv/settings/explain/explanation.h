// explanation.h - why a value is what it is: a tree from the value in force down to its sources, as plain data.
//
// The library's own resolution is observed; nothing is expanded here. The tree is bounded; what is left out is counted.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "explain/furtherEntries.h"
#include "explain/observation.h"
#include "explain/observedSettings.h"
#include "knownKeys/knownKeys.h"

/// A place in the settings file, or with line 0 in the text or the environment variable around it. Counted from 1.
struct FilePlace {
    int line;
    std::size_t column;
};

/// LineList of the settings file, the first ones of many.
struct LineList {
    std::vector<int> lines;
    std::size_t more = 0;
};

/// A value and how it came about.
struct ExplainedValue {
    enum class Source { Setting, Variable, RunTime, Text, Nowhere };
    enum class Expanded { AtLoad, AtRead };

    // Of a reference; the root has none.
    std::optional<Excerpt> reference;  ///< as it is written
    Expanded expanded = Expanded::AtRead;
    std::optional<FilePlace> writtenAt;  ///< none for one that a substitution put in or formed

    Source source = Source::Nowhere;
    std::optional<FilePlace> place;     ///< of a setting's value
    std::optional<Excerpt> raw;         ///< the value as it is at its source
    std::optional<Excerpt> stored;      ///< as it was stored when the file was loaded; of settings only
    std::vector<ExplainedValue> steps;  ///< the references in it, in the order in which they were replaced
    std::size_t stepsLeftOut = 0;       ///< how many more there are, at all levels below
    std::optional<Excerpt> value;       ///< what it became; none when that failed

    LineList replaced;                 ///< earlier entries of the same key
    LineList leftOut;                  ///< entries of that key that were left out when the file was loaded
    int definedBelow = 0;              ///< the line of the setting that did not exist yet
    std::optional<FilePlace> hidden;   ///< the setting that a run-time value hides
    std::vector<std::string> nearest;  ///< names that are probably meant by one that is not defined
};

/// Why there is no value.
struct ExplainedFailure {
    enum class Reason { NotDefined, Cycle, Levels, Substitutions, TextLength, Searching, TooLong };
    struct Link {
        Excerpt name;
        bool isVariable;
        std::optional<FilePlace> place;
        Excerpt text;
    };

    Reason reason;
    bool atLoad = false;           ///< the setting was left out when the file was loaded
    std::size_t length = 0;        ///< of the value that is too long
    std::vector<Link> chain{};     ///< of a cycle, the first one again at the end; the middle of a long one is left out
    std::size_t linksLeftOut = 0;  ///< behind the first ObservedFailure::kLinksBeforeGap
};

ExplainedFailure::Reason reasonOf(KRSResolveFailure why);

struct Explanation {
    std::string file;
    std::string pressmark;  ///< of a setting of a further file, the file that its references mean; else ""
    std::string name;       ///< the setting's; "" for a text
    ExplainedValue root;
    std::optional<std::string> value;  ///< what KREGetEnvValue answers, or KRERuntimeResolve for a text, secrets hidden
    std::optional<ExplainedFailure> failure;
    std::optional<KnownKey> known{};  ///< what the product knows of the setting
};

Explanation explainSetting(const ObservedSettings& settings, const std::string& name);
Explanation explainText(const ObservedSettings& settings, const std::string& text);
Explanation explainFurther(const ObservedSettings& settings, const FurtherEntries& further, const std::string& name);
