// nearest.h - suggestions for a name that does not exist.
#pragma once

#include <string>
#include <vector>

/// Up to three of `known` that `name` is probably meant to be: first the keys of sections, section.NAME, then the
/// nearest names, in which few letters differ; case is ignored there.
std::vector<std::string> nearestNames(const std::string& name, const std::vector<std::string>& known);

/// "; did you mean 'A' or 'B'?", or "" for no names.
std::string didYouMean(const std::vector<std::string>& names);
