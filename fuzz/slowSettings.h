// slowSettings.h - a second implementation of the grammar of settings files, as plain as possible and not made for
// speed. The fuzz target compares the real tables with it.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

struct SlowEntry {
    std::string key;
    std::string value;
    int line;
};

struct SlowFile {
    std::vector<SlowEntry> entries;
    std::string error;  ///< ":LINE:COLUMN: reason" of the first line that is refused; "" when there is none
};

inline std::string withoutBlanks(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

inline std::vector<std::string> slowLines(std::string text) {
    if (text.substr(0, 3) == "\xef\xbb\xbf") text.erase(0, 3);
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string line = text.substr(0, end);
        text.erase(0, end + 1);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

class SlowParser {
public:
    explicit SlowParser(const std::string& text) {
        for (const std::string& line : slowLines(text)) {
            ++number_;
            if (file_.error.empty()) parse(line);
        }
    }
    const SlowFile& file() const { return file_; }

private:
    void refuse(std::size_t position, const char* reason) {
        file_.error = ":" + std::to_string(number_) + ":" + std::to_string(position + 1) + ": " + reason;
    }

    void parse(const std::string& line) {
        const std::size_t first = line.find_first_not_of(" \t");
        const std::size_t nul = line.find('\0');
        if (nul != std::string::npos) return refuse(nul, "NUL byte; a settings file is plain text");
        if (first == std::string::npos || line[first] == ';' || line[first] == '#') return;
        if (line[first] == '[') return parseSection(line, first);
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) return refuse(first, "missing '=', expected KEY = value");
        if (equals == first) return refuse(first, "missing key before '=', expected KEY = value");
        std::string value = withoutBlanks(line.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
        file_.entries.push_back({section_ + withoutBlanks(line.substr(0, equals)), value, number_});
    }

    void parseSection(const std::string& line, std::size_t bracket) {
        const std::size_t closing = line.find(']', bracket);
        if (closing == std::string::npos) {
            return refuse(bracket, "missing ']' after the section name, expected [name]");
        }
        const std::size_t behind = line.find_first_not_of(" \t", closing + 1);
        if (behind != std::string::npos && line[behind] != ';' && line[behind] != '#') {
            return refuse(behind, "unexpected text after ']', expected [name] alone");
        }
        section_ = withoutBlanks(line.substr(bracket + 1, closing - bracket - 1));
        if (!section_.empty()) section_ += ".";
    }

    SlowFile file_;
    std::string section_;
    int number_ = 0;
};
