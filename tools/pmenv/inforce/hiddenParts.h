// hiddenParts.h - which parts of a text must not be shown.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class HiddenParts {
public:
    /// What stands for a hidden part in a text that is shown.
    static constexpr char kShown[] = "(hidden)";

    /// Nothing is hidden.
    HiddenParts() = default;
    /// All of a text of that length.
    explicit HiddenParts(std::size_t length) { append(0, length); }

    /// Hides the characters from `begin` to before `end`, which lie behind all that are hidden so far, or touch them.
    void append(std::size_t begin, std::size_t end);
    /// Hides what `other` hides as well.
    void unite(const HiddenParts& other);
    /// A part of the text is replaced by a value of that length, of which `value` is hidden.
    void replace(std::size_t position, std::size_t length, const HiddenParts& value, std::size_t valueLength);

    bool any() const { return !parts_.empty(); }
    bool overlap(std::size_t position, std::size_t length) const;
    /// What is hidden of a part of the text, counted from its beginning.
    HiddenParts within(std::size_t position, std::size_t length) const;
    /// The hidden part that the character at `position` lies in, as beginning and end; empty where it is not hidden.
    std::pair<std::size_t, std::size_t> around(std::size_t position) const;

    /// The text as it may be shown.
    std::string shown(std::string_view text) const;

private:
    struct Part {
        std::size_t begin;
        std::size_t end;
    };

    std::vector<Part> parts_;  // from left to right, none touching another
};

/// A text that may be shown such that it can be told from any other and from a remark, as unmistakable() of text.h does;
/// when it `hides` all of a value, it is a remark itself.
std::string unmistakable(const std::string& shown, bool hides);
