// treeBuilder.h - from what was observed of a resolution to the tree that is shown. The tree is bounded; what is left
// out is counted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "explain/explanation.h"
#include "explain/furtherEntries.h"
#include "explain/observedSettings.h"

/// The text in which references stand: an entry's value as the file has it or as it was stored, an environment
/// variable's value, a text of the user's.
struct Around {
    const ObservedEntry* entry = nullptr;
    bool stored = false;
};

class TreeBuilder {
public:
    explicit TreeBuilder(const ObservedSettings& settings) : settings_(settings) {}

    /// The setting, with what became of its references when the file was loaded.
    ExplainedValue setting(std::size_t index, std::size_t level = 0);
    /// An entry of a file that was not loaded into the settings.
    ExplainedValue furtherSetting(const FurtherEntries& further, std::size_t index) const;
    /// The references in the text `around`, up to the limits.
    void addSteps(ExplainedValue& value, const std::vector<ObservedStep>& steps, Around around,
                  ExplainedValue::Expanded expanded, std::size_t level);
    /// Tells of a name that is not defined what may help; `line` is where it was looked for while the file was loaded.
    void describeMissing(ExplainedValue& value, const std::string& name, bool isVariable, int line);

    /// Where the entry's value begins.
    FilePlace placeOf(std::size_t index) const {
        return {settings_.entries()[index].line, settings_.entries()[index].column};
    }

private:
    ExplainedValue step(const ObservedStep& step, Around around, ExplainedValue::Expanded expanded, std::size_t level);
    static std::optional<FilePlace> writtenAt(const ObservedStep& step, Around around);
    std::size_t countOf(const ObservedStep& step);
    std::size_t countOf(const std::vector<ObservedStep>& steps);
    std::size_t countOf(const ObservedEntry& entry);
    const std::vector<std::string>& suggestions(const std::string& name, bool isVariable);

    const ObservedSettings& settings_;
    std::size_t values_ = 0;
    std::map<const ObservedEntry*, std::size_t> counts_;
    std::uint64_t comparisons_ = 0;
    std::vector<std::string> names_;
    std::vector<std::string> variables_;
    std::map<std::pair<std::string, bool>, std::vector<std::string>> suggestions_;
};
