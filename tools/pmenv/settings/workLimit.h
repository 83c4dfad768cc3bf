// workLimit.h - how much work a settings file may cause. An honest file takes a small part of it.
#pragma once

#include <cstdint>
#include <cstring>

#include "krresolve.h"

class WorkLimit {
public:
    struct Exceeded {};

    /// An entry more may take some work more.
    void grantEntries(std::size_t count) { left_ += kForAnEntry * count; }
    /// For a reference that is replaced. Throws Exceeded when the limit is used up.
    void spend(const KRSReference& reference) {
        const std::size_t valueLength = reference.value != nullptr ? std::strlen(reference.value) : 0;
        const std::uint64_t characters = kSubstitution + reference.position + reference.length + valueLength;
        if (characters > left_) throw Exceeded();
        left_ -= characters;
    }

private:
    // In characters of searching.
    static constexpr std::uint64_t kForTheFile = std::uint64_t{1} << 30;
    static constexpr std::uint64_t kForAnEntry = 16 * 1024;
    static constexpr std::uint64_t kSubstitution = 1024;

    std::uint64_t left_ = kForTheFile;
};
