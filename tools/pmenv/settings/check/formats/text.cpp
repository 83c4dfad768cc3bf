// For people, editors and pipelines: file:line:column: error: text [rule].
#include <iostream>

#include <unistd.h>

#include "check/findings.h"
#include "check/formats/formats.h"

namespace {

class TextWriter final : public FindingsWriter {
public:
    void add(const CheckedFile& checked) override {
        for (const CheckFinding& finding : checked.findings) std::cout << findingText(checked, finding, style_);
    }
    void addUnreadable(const std::string& /*file*/, const std::string& /*problem*/) override {}
    void finish() override { std::cout.flush(); }
    bool wantsSummary() const override { return true; }

private:
    Style style_{STDOUT_FILENO};
};

}  // namespace

std::unique_ptr<FindingsWriter> textWriter() { return std::make_unique<TextWriter>(); }
