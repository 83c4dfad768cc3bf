// search.h - the library's file search, and why it found nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "output.h"
#include "settings.h"

// Each function takes the settings that "#X" is read from, and hides what these hide. A null pointer chooses the family of the library's functions
// that works without settings and understands no "#X".

/// One place of a search: a variable that stands for nothing, or one directory of its list.
struct Place {
    std::string variable;
    std::optional<std::string> directory;
    std::string
        problem;  ///< "variable not set", "no such directory", ...; "" for a directory in which nothing is wrong
    bool isHidden = false;  ///< the directory must not be shown, because the setting that names it holds a secret
};

/// What a path variable stands for; the places tell what is wrong with each directory of its list, or with the
/// variable.
struct Resolution {
    std::optional<std::string> value;
    std::vector<Place> places;
};
Resolution resolveVariable(const std::string& variable, const Settings* settings);

/// The outcome of a search in several variables.
struct SearchResult {
    std::optional<std::string> path;
    std::string variable;       ///< the one in which it was found
    std::vector<Place> places;  ///< all places tried, those of the variable in which it was found left out
};
SearchResult searchFile(const std::string& name, const std::vector<std::string>& variables, const Settings* settings);

/// The places one a line, numbered: "  2. $KR_BIN: variable not set".
std::string placesText(const std::vector<Place>& places);
Json placesJson(const std::vector<Place>& places);
