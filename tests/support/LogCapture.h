// LogCapture.h - collects the log's records for the length of a scope.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Logging.h"

/// While it exists, all levels are enabled and it receives every record. Its destructor restores the levels.
class LogCapture {
public:
    struct Entry {
        nLogging::Level level;
        std::string category;
        std::string file;
        int line;
        std::string text;
    };

    LogCapture() {
        for (std::size_t i = 0; i < kLevels; ++i) {
            wasEnabled_[i] = nLogging::gIsEnabled(levelAt(i));
            nLogging::gEnable(levelAt(i), true);
        }
        nLogging::gSetSink([this](const nLogging::Record& record) {
            if (onRecord) onRecord();
            const std::lock_guard<std::mutex> lock(mutex_);
            entries_.push_back({record.level, record.category, record.file, record.line, record.text});
        });
    }
    ~LogCapture() {
        nLogging::gSetSink({});
        for (std::size_t i = 0; i < kLevels; ++i) nLogging::gEnable(levelAt(i), wasEnabled_[i]);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Runs while each record is delivered, before it is gathered; to be set while nobody logs.
    std::function<void()> onRecord;

    /// All records so far.
    std::vector<Entry> entries() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return entries_;
    }

    /// "LEVEL: TEXT" of each record, in order.
    std::vector<std::string> records() const {
        std::vector<std::string> found;
        for (const Entry& entry : entries()) found.push_back(nLogging::gLevelName(entry.level) + (": " + entry.text));
        return found;
    }

    /// The texts of the records of one level, in order.
    std::vector<std::string> texts(nLogging::Level level) const {
        std::vector<std::string> found;
        for (const Entry& entry : entries()) {
            if (entry.level == level) found.push_back(entry.text);
        }
        return found;
    }

    void clear() {
        const std::lock_guard<std::mutex> lock(mutex_);
        entries_.clear();
    }

private:
    static constexpr std::size_t kLevels = 8;
    static nLogging::Level levelAt(std::size_t index) { return static_cast<nLogging::Level>(index); }

    mutable std::mutex mutex_;  // guards entries_
    std::vector<Entry> entries_;
    bool wasEnabled_[kLevels];
};
