#include "secretTrace.h"

#include <algorithm>

const LoadedSecrets::Value* LoadedSecrets::find(const std::string& key) const {
    const auto found = values_.find(key);
    return found != values_.end() ? &found->second : nullptr;
}

void LoadedSecrets::store(const std::string& key, Value value) {
    if (value.parts.any()) {
        values_[key] = std::move(value);
    } else {
        values_.erase(key);
    }
}

SecretTrace::SecretTrace(const LoadedSecrets& loaded, const std::string& key, std::string_view stored)
    : SecretTrace(loaded, {}) {
    const LoadedSecrets::Value* const value = loaded.find(key);
    if (value == nullptr) return;
    levels_.back().parts = value->parts;
    if (value->replaced) levels_.back().writtenFrom = stored.size();
}

// In a secret text all is secret that a reference puts in, and even its name, unless it was written there and means
// something: then it tells where the secret comes from, and is none itself.
void SecretTrace::found(const KRSReference& reference) {
    const std::string_view value(reference.value != nullptr ? reference.value : "");
    const std::string name = reference.name();
    const LoadedSecrets::Value* const stored = reference.isVariable() ? nullptr : loaded_->find(name);
    const Level& around = levels_.back();
    const bool isInSecret = around.parts.overlap(reference.position, reference.length);
    const bool isWritten = reference.value != nullptr && reference.position >= around.writtenFrom;

    Level level{isInSecret ? HiddenParts(value.size()) : loaded_->secrets().partsOf(name, value),
                0,
                reference.position,
                reference.length,
                isInSecret,
                isInSecret && !isWritten};
    if (stored != nullptr) level.parts.unite(stored->parts);
    if (stored != nullptr && stored->replaced) level.writtenFrom = value.size();
    levels_.push_back(std::move(level));
}

void SecretTrace::resolved(std::string_view value) {
    const Level level = std::move(levels_.back());
    levels_.pop_back();
    resolvedParts_ = level.parts;
    resolvedParts_.unite(loaded_->secrets().partsIn(value));

    Level& around = levels_.back();
    around.parts.replace(level.position, level.length, resolvedParts_, value.size());
    const std::size_t end = level.position + level.length;
    around.writtenFrom = std::max(around.writtenFrom, end) - level.length + value.size();
}

HiddenParts SecretTrace::ended(std::string_view result) const {
    HiddenParts parts = levels_.front().parts;
    parts.unite(loaded_->secrets().partsIn(result));
    return parts;
}

void SecretLoad::begun(const char* key, const char* value) {
    key_ = key;
    replaced_ = false;
    trace_.emplace(loaded_, loaded_.secrets().partsOf(key, value));
}

void SecretLoad::found(const KRSReference& reference) {
    replaced_ = true;
    trace_->found(reference);
}

void SecretLoad::ended(const char* value) {
    if (value != nullptr) loaded_.store(key_, {trace_->ended(value), replaced_});
}
