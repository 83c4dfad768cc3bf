// LogExpectations.h - expectations about the log's records.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "LogCapture.h"

/// Expects a record of the library's source `file`, with any line.
inline void expectRecord(const LogCapture::Entry& entry, nLogging::Level level, const char* file,
                         const std::string& text) {
    EXPECT_EQ(level, entry.level);
    EXPECT_EQ("PMEnvironment", entry.category);
    EXPECT_EQ(file, entry.file);
    EXPECT_GT(entry.line, 0);
    EXPECT_EQ(text, entry.text);
}

/// Expects `count` Error records of the path and file functions that carry only their position, and nothing else.
inline void expectBareErrors(const LogCapture& log, std::size_t count) {
    const auto entries = log.entries();
    EXPECT_EQ(count, entries.size());
    for (const LogCapture::Entry& entry : entries) expectRecord(entry, nLogging::Level::Error, "../src/krpfiles", "");
}
