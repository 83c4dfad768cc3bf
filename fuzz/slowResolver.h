// slowResolver.h - a plain implementation of the expansion of references: recursive, with every match tried by hand and
// with the same limits. The fuzz targets compare the library's resolvers with it.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class SlowResolver {
public:
    using LookUp = std::function<std::optional<std::string>(char sign, const std::string& name)>;

    SlowResolver(char open, char close, LookUp lookUp) : open_(open), close_(close), lookUp_(std::move(lookUp)) {}

    /// The expanded text, or nothing when there is a cycle or a limit is passed.
    std::optional<std::string> operator()(std::string text) {
        inProgress_.clear();
        substitutions_ = searched_ = 0;
        if (!resolve(&text) || searched_ > kMostSearched) return std::nullopt;
        return text;
    }

private:
    static constexpr std::size_t kMostText = 1 << 20;
    static constexpr std::size_t kMostLevels = 512;
    static constexpr std::size_t kMostSubstitutions = 65'536;
    static constexpr std::size_t kMostSearched = 256 << 20;

    static bool isNameCharacter(char c) { return c != ' ' && c != '\t' && c != '\n' && c != '(' && c != ')'; }

    // The greatest length of a reference at `position`; 0 for none.
    std::size_t matchAt(const std::string& text, std::size_t position) const {
        if (text[position] != '$' && text[position] != '#') return 0;
        if (position + 1 >= text.size() || text[position + 1] != open_) return 0;
        std::size_t end = position + 2;
        while (end < text.size() && isNameCharacter(text[end])) ++end;
        if (close_ == ')') return end > position + 2 && end < text.size() && text[end] == ')' ? end + 1 - position : 0;
        while (end > position + 3 && text[end - 1] != close_) --end;
        return end > position + 3 ? end - position : 0;
    }

    bool resolve(std::string* text) {
        for (const std::string& outer : inProgress_) {
            if (outer == *text) return false;
        }
        inProgress_.push_back(*text);
        if (inProgress_.size() > kMostLevels || !replaceAll(text)) return false;
        inProgress_.pop_back();
        return true;
    }

    bool replaceAll(std::string* text) {
        for (std::size_t position = 0; position < text->size();) {
            const std::size_t length = matchAt(*text, position);
            if (length == 0) {
                ++position;
                continue;
            }
            searched_ += position + length;
            if (text->size() > kMostText || searched_ > kMostSearched || ++substitutions_ > kMostSubstitutions) {
                return false;
            }
            std::string value = lookUp_((*text)[position], text->substr(position + 2, length - 3)).value_or("");
            if (!resolve(&value)) return false;
            text->replace(position, length, value);
            if (text->size() > kMostText) return false;
            position = 0;
        }
        searched_ += text->size();
        return true;
    }

    char open_;
    char close_;
    LookUp lookUp_;
    std::vector<std::string> inProgress_;
    std::size_t substitutions_ = 0;
    std::size_t searched_ = 0;
};
