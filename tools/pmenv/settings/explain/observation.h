// observation.h - what the library does while it expands a text's references, written down.
//
// What is kept is bounded, however much a resolution does: it is meant to be read. What is not kept is counted.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "krresolve.h"
#include "secretTrace.h"

/// A text as it may be shown, or the beginning of a very long one.
struct Excerpt {
    static constexpr std::size_t kLongest = 2047;  // so that expanded values are whole

    explicit Excerpt(std::string_view whole)
        : text(whole.substr(0, kLongest)), length(whole.size()), hash(std::hash<std::string_view>()(whole)) {}
    Excerpt(std::string_view whole, const HiddenParts& hidden);
    bool isWhole() const { return text.size() == length; }

    std::string text;
    std::size_t length;  ///< of the whole text
    std::size_t hash;    ///< of the whole text with nothing hidden, by which it is told from another
    bool hides = false;  ///< what is secret in it
};

/// Follows a text through replacements of its parts: where does what stands in it now come from?
class OriginMap {
public:
    /// Where the part was before any replacement; nothing when it was put in, or formed together with what was.
    std::optional<std::size_t> originOf(std::size_t position, std::size_t length) const;
    /// The part is replaced by as many characters as `newLength`. Parts right of it are as they were at first.
    void replace(std::size_t position, std::size_t length, std::size_t newLength);

    std::size_t replacements() const { return patches_.size(); }

private:
    // A part that is no longer what it was, and where the text behind it was at first.
    struct Patch {
        std::size_t begin;
        std::size_t end;
        std::size_t originOfEnd;
    };
    std::size_t originOfUnchanged(std::size_t position) const;

    std::vector<Patch> patches_;  // from left to right, none overlapping another
};

/// A reference that was replaced.
struct ObservedStep {
    Excerpt written;
    std::optional<std::size_t> position;  ///< in the text around it as that was at first; none for one formed later
    bool isVariable;
    std::string name;                  ///< "" for one too long to be looked for among others, or secret
    std::optional<Excerpt> value;      ///< what the name stands for; none when it is not defined
    std::optional<std::size_t> entry;  ///< the entry that defines the setting
    std::optional<Excerpt> expanded;   ///< what takes the reference's place; none when the resolution failed before
    std::vector<ObservedStep> steps;   ///< the references in the value
    std::size_t stepsNotKept = 0;      ///< how many more there are, at all levels below
};

/// How many they are, at all levels.
std::size_t countSteps(const std::vector<ObservedStep>& steps);

/// A text in progress on the way to the one at which a resolution failed.
struct ObservedLink {
    Excerpt name;  ///< "" for a text that is no value
    bool isVariable;
    std::optional<std::size_t> entry;
    Excerpt text;  ///< before its references were replaced
};

struct ObservedFailure {
    static constexpr std::size_t kLinksBeforeGap = 12;

    KRSResolveFailure why;
    /// For a cycle: the texts that lead from one to the next, the first one again at the end. Of a long chain only
    /// its beginning and its end.
    std::vector<ObservedLink> chain;
    std::size_t linksNotKept = 0;  ///< behind the first kLinksBeforeGap
};

/// One resolution.
struct Observation {
    std::vector<ObservedStep> steps;
    std::size_t stepsNotKept = 0;
    OriginMap origins;  ///< from the result to the text as it was at first
    std::optional<ObservedFailure> failure;
};

/// Writes a resolution down.
class Recorder final : public KRSResolveObserver {
public:
    using FindEntry = std::function<std::optional<std::size_t>(const std::string& name)>;

    static constexpr std::size_t kMostSteps = 200;
    static constexpr std::size_t kMostStepsOfAText = 20;
    static constexpr std::size_t kMostLevels = 20;

    /// `text` is about to be resolved, the value of the setting `name` (in `entry`), or with an empty name any text.
    /// `findEntry` tells which entry defines a setting now. What is secret is hidden as the begun `trace` tells.
    Recorder(std::string_view name, std::optional<std::size_t> entry, std::string_view text, FindEntry findEntry,
             SecretTrace trace, std::size_t mostSteps = kMostSteps);

    void found(const KRSReference& reference) override;
    void resolved(const char* value) override;
    void failed(KRSResolveFailure why, const char* text) override;

    /// What was observed, once the resolution has ended.
    Observation take();
    /// What is hidden of the `result` then.
    HiddenParts hiddenOf(std::string_view result) const { return trace_.ended(result); }

private:
    // A text in progress. For all but the outermost also the reference that it stands for.
    struct Level {
        ObservedLink link;
        std::size_t textLength;       // before its references were replaced, nothing hidden
        ObservedStep* step;           // null when it is not kept
        std::size_t position;         // of the reference in the text around it
        std::size_t referenceLength;  // as it is by now
        OriginMap origins;
    };

    ObservedStep* keep(ObservedStep step);
    void countNotKept();
    std::vector<ObservedLink> cycleEndingIn(std::string_view text) const;

    FindEntry findEntry_;
    SecretTrace trace_;
    std::size_t mostSteps_;
    Observation observation_;
    std::vector<Level> levels_;  // the outermost first
};
