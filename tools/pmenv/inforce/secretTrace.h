// secretTrace.h - follows what is secret through an expansion, so that it is hidden where it comes out as well.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hiddenParts.h"
#include "krresolve.h"
#include "secrets.h"

/// What is hidden of the settings that were loaded.
class HiddenValues {
public:
    struct Value {
        HiddenParts parts;
        bool replaced;  ///< the load has put something in, so that the text is not the one of the file
    };

    /// Null for a setting of which nothing is hidden.
    const Value* find(const std::string& key) const;
    void store(const std::string& key, Value value);

private:
    std::map<std::string, Value> values_;
};

/// One expansion. It is told what an observer is told.
class SecretTrace {
public:
    /// Both must outlive the trace.
    SecretTrace(const Secrets& secrets, const HiddenValues& stored) : secrets_(&secrets), stored_(&stored) {}

    /// `parts` are hidden of the text that is about to be expanded.
    void begin(HiddenParts parts);
    /// The text is the value of a setting as it was stored.
    void beginStored(const std::string& key, std::string_view value);

    void found(const KRSReference& reference);
    void resolved(std::string_view value);

    /// Of the innermost text in progress.
    const HiddenParts& parts() const { return levels_.back().parts; }
    /// Whether the reference that it stands for must not be shown: its name is a secret text, or part of one.
    bool hidesReference() const { return levels_.back().hidesReference; }
    /// Of the text that the latest reference has become.
    const HiddenParts& resolvedParts() const { return resolvedParts_; }
    /// Of the result, once the expansion has ended.
    HiddenParts ended(std::string_view result) const;

private:
    // A text in progress and, of all but the outermost, the reference that it stands for.
    struct Level {
        HiddenParts parts;
        std::size_t writtenFrom;  // what stands before it was put in, or formed by what was
        std::size_t position = 0;
        std::size_t length = 0;
        bool hidesReference = false;
    };

    const Secrets* secrets_;
    const HiddenValues* stored_;
    std::vector<Level> levels_;  // the outermost first
    HiddenParts resolvedParts_;
};

/// The load of a settings file. It is told what an observer is told.
class SecretLoad {
public:
    explicit SecretLoad(Secrets secrets) : secrets_(std::move(secrets)), trace_(secrets_, values_) {}
    SecretLoad(const SecretLoad&) = delete;
    SecretLoad& operator=(const SecretLoad&) = delete;

    void begun(const std::string& key, std::string_view value);
    void found(const KRSReference& reference);
    void resolved(std::string_view value) { trace_.resolved(value); }
    /// `value` is null for an entry that was left out.
    void ended(const char* value);

    const Secrets& secrets() const { return secrets_; }
    /// Of the entry that is being loaded.
    const SecretTrace& trace() const { return trace_; }
    /// Of the entries that were loaded.
    const HiddenValues& values() const { return values_; }
    /// What is hidden of the value that the last entry was stored with.
    const HiddenParts& storedParts() const { return storedParts_; }

private:
    Secrets secrets_;
    HiddenValues values_;
    SecretTrace trace_;
    std::string key_;
    bool replaced_ = false;
    HiddenParts storedParts_;
};
