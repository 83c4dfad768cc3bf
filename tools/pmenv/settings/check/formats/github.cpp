// Workflow commands, which GitHub shows beside the lines of a change.
#include <iostream>
#include <string_view>

#include "check/formats/codeUnits.h"
#include "check/formats/formats.h"
#include "text.h"

namespace {

// With each of the characters as %XX.
std::string escaped(const std::string& text, std::string_view characters) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string result;
    for (const char character : text) {
        if (characters.find(character) == std::string_view::npos) {
            result += character;
        } else {
            result.append("%").append(1, kDigits[character / 16]).append(1, kDigits[character % 16]);
        }
    }
    return result;
}

std::string message(const std::string& text) { return escaped(printable(text), "%"); }
std::string property(const std::string& text) { return escaped(text, "%\r\n:,"); }

class GithubWriter final : public FindingsWriter {
public:
    void add(const CheckedFile& checked) override {
        for (const CheckFinding& finding : checked.findings) std::cout << commandFor(checked, finding);
    }
    void addUnreadable(const std::string& file, const std::string& problem) override {
        std::cout << "::error file=" << property(file) << "::" << message(problem) << "\n";
    }
    void finish() override { std::cout.flush(); }
    bool wantsSummary() const override { return true; }

private:
    std::string commandFor(const CheckedFile& checked, const CheckFinding& finding) {
        const UnitColumns columns = units_.columnsOf(checked, finding);
        return std::string(finding.rule->isError() ? "::error" : "::warning") + " file=" + property(checked.file) +
               ",line=" + std::to_string(finding.line) + ",col=" + std::to_string(columns.begin) +
               ",endColumn=" + std::to_string(columns.end) + ",title=" + property(finding.rule->name) +
               "::" + message(finding.text) + "\n";
    }

    CodeUnits units_;
};

}  // namespace

std::unique_ptr<FindingsWriter> githubWriter() { return std::make_unique<GithubWriter>(); }
