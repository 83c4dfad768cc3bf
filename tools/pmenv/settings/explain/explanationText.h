// explanationText.h - an explanation as a tree for people.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "explain/explanation.h"
#include "terminal.h"

/// The tree, the final text last. Texts on the way are cut to `width`, without one when they are very long; the final
/// text never is.
std::string explanationText(const Explanation& explanation, const Style& style, std::optional<std::size_t> width);

/// Why there is no value: "its references lead back to themselves".
std::string failureText(const ExplainedFailure& failure);
