// krresolve.h - how references inside values are expanded; KREnvContainerClass and KREInit are built on it.
//
// One resolution is a chain of nested levels: the text, the value of a reference in it, a reference in that value, and
// so on. An AddDelSet holds the texts in progress on the chain, so that a text that comes back is seen as a cycle.
//
// Threads: the resolvers keep their state in the caller's set and on the stack and may run on several threads with sets
// of their own. KRSLoadFilter writes one static text and serves one thread at a time.
#pragma once

#include <cstddef>
#include <memory>

#include "RWCString.h"
#include "RWSet.h"
#include "krexport.h"

/// The texts whose resolution is in progress, and what the resolution has cost so far. One per top-level resolution.
class AddDelSet : public RWSet {
public:
    explicit AddDelSet(std::size_t capacity = RWCollection::DEFAULT_CAPACITY) : RWSet(capacity) {}

    // Spent by the resolvers and limited there: a resolution that costs more is a failed expansion.
    std::size_t levels = 0;         ///< nested levels now
    std::size_t substitutions = 0;  ///< references replaced so far
    std::size_t searched = 0;       ///< characters searched so far
};

/// Holds a text in a set for the length of a scope.
class KRENV_EXPORT AddDel {
public:
    /// Inserts a copy of `text`, unless the set holds an equal text already.
    AddDel(AddDelSet& set, const RWCString& text);
    /// Takes the text that equals the copy out of the set, whoever put it there, and deletes the copy.
    ~AddDel();
    AddDel(const AddDel&) = delete;
    AddDel& operator=(const AddDel&) = delete;

    /// True when the set already held an equal text.
    bool isDuplicate() const { return duplicate_; }

private:
    AddDelSet& set_;
    std::unique_ptr<RWCollectableString> copy_;
    bool duplicate_;
};

/// Expands every $(NAME) and #(NAME) in `text`, in place. False, with `text` partly expanded, on a cycle or when a
/// limit is met (see KREnvContainerClass::KRERuntimeResolve).
KRENV_EXPORT bool KRSRuntimeResolve(AddDelSet& set, RWCString& text);

/// The same for ${NAME} and #{NAME}. Braces may stand in a name: "${A}${B}" is one reference, to the name "A}${B".
KRENV_EXPORT bool KRSLoadResolve(AddDelSet& set, RWCString& text);

/// The value filter of pressmark.ini: `value` (null counts as empty) with its brace references expanded, in a static
/// text that the next call overwrites. Null after an Error record when the expansion failed. The key is not used.
KRENV_EXPORT const char* KRSLoadFilter(const char* key, const char* value);
