// side.h - one side of a comparison: what a program would read from a settings file, and how the values came about.
//
// The library has one table of settings in force. So a side is read as a whole, and released before the next one is.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diff/variables.h"
#include "explain/observation.h"
#include "explain/observedSettings.h"
#include "secrets.h"

/// What is compared of each setting: the text as it is stored, or as it is read.
enum class Form { Stored, Expanded };

struct SideRequest {
    std::string path;
    std::string name;                    ///< what the file is called to the user
    std::optional<Variables> variables;  ///< the process environment unless they are given
    Form form = Form::Expanded;
    Secrets secrets{};
};

/// The value of a setting.
struct SideValue {
    std::size_t entry;                ///< the one in force
    std::optional<std::string> text;  ///< what is compared, nothing hidden; none when it cannot be read
    std::optional<Excerpt> shown;     ///< the same as it may be shown
    std::string problem;              ///< why there is none
    std::vector<ObservedStep> steps;  ///< the references that were replaced when it was read
};

struct Side {
    std::string name;
    std::unique_ptr<const ObservedSettings> settings;
    std::vector<std::string> keys;            ///< of the settings in force, in file order
    std::map<std::string, SideValue> values;  ///< by key

    const SideValue* find(const std::string& key) const;
};

/// Throws Failure when the file is refused, or takes more work than an honest file does.
Side readSide(const SideRequest& request);
