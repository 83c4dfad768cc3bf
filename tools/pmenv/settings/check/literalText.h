// literalText.h - texts that look like references and are none.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct LiteralText {
    std::size_t position;  ///< in the value
    std::size_t length;
    std::string text;  ///< what is wrong with it
};

/// What a reader of `value` could take for a reference, but still stands in its `expanded` form: a bracket that is not
/// closed, blanks around a name, no name, $HOME. A bracket that other references complete, as in $(A$(B)), does not.
std::vector<LiteralText> literalTexts(const std::string& value, const std::string& expanded);
