// formats.h - the forms in which `pmenv check` writes down what it finds.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "check/check.h"

/// Writes to standard output, a file at once or everything at the end.
class FindingsWriter {
public:
    virtual ~FindingsWriter() = default;

    virtual void add(const CheckedFile& checked) = 0;
    /// A file or directory that could not be read.
    virtual void addUnreadable(const std::string& file, const std::string& problem) = 0;
    virtual void finish() {}
    /// Whether a line on standard error sums up the findings.
    virtual bool wantsSummary() const { return false; }
};

/// "text", "json", "sarif", "github".
std::vector<std::string> formatNames();
std::unique_ptr<FindingsWriter> findingsWriter(const std::string& format);

// --- each in a file of its own --------------------------------------------------------------------------------------

std::unique_ptr<FindingsWriter> textWriter();
std::unique_ptr<FindingsWriter> jsonWriter();
std::unique_ptr<FindingsWriter> sarifWriter();
std::unique_ptr<FindingsWriter> githubWriter();
