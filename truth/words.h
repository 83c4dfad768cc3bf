// words.h - texts like "threads=2 rate=80..160 log=/tmp/log": how the table of situations, the driver and the engine
// tell each other what is to be done.
#pragma once

#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

class Words {
public:
    /// Throws std::invalid_argument for a word that is not NAME=VALUE.
    explicit Words(std::string_view text) {
        while (!text.empty()) {
            const std::size_t end = std::min(text.find(' '), text.size());
            if (end > 0) add(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    }
    Words() = default;

    bool has(const std::string& name) const { return values_.count(name) > 0; }
    void set(const std::string& name, const std::string& value) { values_[name] = value; }
    void remove(const std::string& name) { values_.erase(name); }

    std::string text(const std::string& name) const { return has(name) ? values_.at(name) : std::string(); }
    double number(const std::string& name, double ifAbsent = 0) const {
        return has(name) ? numberOf(name, values_.at(name)) : ifAbsent;
    }
    int count(const std::string& name, int ifAbsent = 0) const { return static_cast<int>(number(name, ifAbsent)); }

    /// The words in order of their names.
    const std::map<std::string, std::string>& all() const { return values_; }

private:
    static double numberOf(const std::string& name, const std::string& value) {
        char* end = nullptr;
        const double number = std::strtod(value.c_str(), &end);
        if (value.empty() || *end != '\0') throw std::invalid_argument(name + "=" + value + ": no number");
        return number;
    }
    void add(std::string_view word) {
        const std::size_t equals = word.find('=');
        if (equals == std::string_view::npos) throw std::invalid_argument(std::string(word) + ": no NAME=VALUE");
        values_[std::string(word.substr(0, equals))] = word.substr(equals + 1);
    }

    std::map<std::string, std::string> values_;
};
