// expansion.h - what the library meets while it expands the value of an entry.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "check/settingsText.h"
#include "krresolve.h"

/// A reference that deserves a look, because it stands for nothing, or because it is in a further file.
struct Reference {
    std::string written;
    std::string name;
    bool isVariable;
    bool isDefined;
    std::string variable;                 ///< the environment variable whose value holds it; "" for the own value
    std::optional<std::size_t> position;  ///< in the entry's value; none for one that forms while it is expanded
    bool isHidden = false;                ///< its name must not be shown
};

/// A text on the way from an entry to where its expansion failed.
struct ChainLink {
    std::string name;  ///< as it may be shown; the beginning of a very long one
    bool isVariable;
    std::size_t valueHash;
};

/// The expansion of one entry's value: of braces when the file is loaded, of parentheses when the value is read.
struct Expansion {
    enum class When { Loading, Reading };

    const Entry* entry;
    When when;
    bool replaced = false;  ///< by the load, so that the value may hold references that stand in other settings
    bool gaveUp = false;    ///< the values of the file take too much work; this is the last expansion

    /// Each once. Those in the values of other settings are the matter of these settings.
    std::vector<Reference> references{};
    std::optional<KRSResolveFailure> failure{};
    /// The way to where it failed, beginning with the entry; for a cycle, the name at which it closes stands at the end
    /// once more.
    std::vector<ChainLink> chain{};
    std::optional<std::string> text{};  ///< what the value becomes; none when that fails, or gave up
    HiddenParts hidden{};               ///< what of that must not be shown

    /// How a reference to `name` is written where this expansion would replace it: "#{NAME}" or "#(NAME)".
    std::string asWritten(char sign, const std::string& name) const;
};

/// Loads the file and reads every value that a program could ask for, once each; hands over what became of it. A
/// further file is not loaded: nothing in it is expanded before it is read, and that against `pressmark`, the path of
/// pressmark.ini. Throws Failure when the library cannot load what it is to load.
void expandAll(SettingsText& settings, const std::string& pressmark,
               const std::function<void(const Expansion&)>& visit);
