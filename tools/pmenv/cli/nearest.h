// nearest.h - suggestions for a name that does not exist.
#pragma once

#include <string>
#include <vector>

/// Up to three of `known` that are probably meant by `name`, the nearest first: few letters away, case not counting.
std::vector<std::string> nearestNames(const std::string& name, const std::vector<std::string>& known);

/// "; did you mean 'A' or 'B'?", or "" for none.
std::string didYouMean(const std::vector<std::string>& names);
