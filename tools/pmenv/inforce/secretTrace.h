// secretTrace.h - follows what is secret through an expansion, so that it is hidden where it comes out as well.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hiddenParts.h"
#include "krresolve.h"
#include "secrets.h"

/// What is secret in the settings that were loaded so far.
class LoadedSecrets {
public:
    struct Value {
        HiddenParts parts;
        bool replaced;  ///< the load has put something in, so that the text is not the one of the file
    };

    explicit LoadedSecrets(Secrets secrets) : secrets_(std::move(secrets)) {}

    const Secrets& secrets() const { return secrets_; }
    /// Null for a setting that hides nothing.
    const Value* find(const std::string& key) const;
    void store(const std::string& key, Value value);

private:
    Secrets secrets_;
    std::map<std::string, Value> values_;
};

/// One expansion. It is told what an observer is told.
class SecretTrace {
public:
    /// `parts` are hidden of the text that is about to be expanded; what stands in it is as a person has written it.
    /// References mean the settings of `loaded`, which must outlive the trace.
    SecretTrace(const LoadedSecrets& loaded, HiddenParts parts) : loaded_(&loaded) {
        levels_.push_back({std::move(parts), 0});
    }
    /// The text is the value of a setting, as it was stored.
    SecretTrace(const LoadedSecrets& loaded, const std::string& key, std::string_view stored);

    void found(const KRSReference& reference);
    void resolved(std::string_view value);

    /// Of the innermost text in progress.
    const HiddenParts& parts() const { return levels_.back().parts; }
    /// Whether the reference that it stands for lies in a secret text, which hides all of it.
    bool isInSecret() const { return levels_.back().isInSecret; }
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
        bool isInSecret = false;
        bool hidesReference = false;
    };

    const LoadedSecrets* loaded_;
    std::vector<Level> levels_;  // the outermost first
    HiddenParts resolvedParts_;
};

/// Stores what is secret in the settings of pressmark.ini while they are loaded.
class SecretLoad final : public KRSLoadObserver {
public:
    explicit SecretLoad(LoadedSecrets& loaded) : loaded_(loaded) {}
    void begun(const char* key, const char* value) override;
    void found(const KRSReference& reference) override;
    void resolved(const char* value) override { trace_->resolved(value); }
    void failed(KRSResolveFailure /*why*/, const char* /*text*/) override {}
    void ended(const char* value) override;

private:
    LoadedSecrets& loaded_;
    std::string key_;  // of the entry that is being loaded
    bool replaced_ = false;
    std::optional<SecretTrace> trace_;
};
