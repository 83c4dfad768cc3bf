// krresolve.h - how references inside values are expanded; KREnvContainerClass and KREInit are built on it.
//
// One resolution is a chain of nested levels: the text, the value of a reference in it, a reference in that value, and
// so on. An AddDelSet holds the texts in progress on the chain, so that a text that comes back is seen as a cycle.
//
// Who wants to show where a value comes from sets an observer:
//
//     AddDelSet set;
//     set.observer = &myObserver;
//     RWCString text("#(RESULTS_DIR)/today");
//     KRSRuntimeResolve(set, text);
//
// Threads: the resolvers keep their state in the caller's set and on the stack and may run on several threads with sets
// of their own. KRSLoadFilter writes one static text and serves one thread at a time.
#pragma once

#include <cstddef>
#include <string>

#include "RWCString.h"
#include "RWSet.h"
#include "krexport.h"

/// A reference that a resolution is about to replace. The texts live as long as the observer's call.
struct KRSReference {
    const char* text;      ///< the text in progress around it, as it is by now
    std::size_t position;  ///< where the reference begins in it
    std::size_t length;    ///< its length, sign and brackets included
    const char* value;     ///< what the name stands for, not yet expanded; null when it is not defined

    /// True for $(NAME) and ${NAME}, a variable of the process environment; false for a setting of pressmark.ini.
    bool isVariable() const { return text[position] == '$'; }
    /// The name between the brackets.
    std::string name() const { return {text + position + 2, length - 3}; }
    /// The reference as it is written.
    std::string written() const { return {text + position, length}; }
};

/// Why a resolution has failed.
enum class KRSResolveFailure {
    Cycle,          ///< a text in progress came up again
    Levels,         ///< more than 512 nested levels
    Substitutions,  ///< more than 65,536 references replaced
    TextLength,     ///< a text in progress longer than 1 MiB
    Searching       ///< more than 256 Mi characters searched
};

/// Watches a resolution, step by step and on its thread. For programs that show why a value is what it is; a resolution
/// without an observer costs nothing more. The observer changes nothing; what it throws passes through the resolver.
class KRSResolveObserver {
public:
    /// A reference was found. Those in its value follow, nested, until resolved() ends it.
    virtual void found(const KRSReference& reference) = 0;
    /// The value of the reference found last and not yet ended is expanded to `value` and takes the reference's place.
    virtual void resolved(const char* value) = 0;
    /// The resolution failed at `text`, the innermost one in progress; no further call follows.
    virtual void failed(KRSResolveFailure why, const char* text) = 0;

protected:
    ~KRSResolveObserver() = default;
};

/// Watches pressmark.ini while it is loaded (KRELoadIniFile): entry by entry in file order, and between begun() and
/// ended() what becomes of the references in braces.
class KRSLoadObserver : public KRSResolveObserver {
public:
    /// An entry's value, as the file has it, is about to be expanded.
    virtual void begun(const char* key, const char* value) = 0;
    /// It is stored as `value`, or left out when that is null.
    virtual void ended(const char* value) = 0;

protected:
    ~KRSLoadObserver() = default;
};

/// The texts whose resolution is in progress, and what the resolution has cost so far. One per top-level resolution.
class AddDelSet : public RWSet {
public:
    /// An empty set with room for `capacity` texts; it grows when there are more.
    explicit AddDelSet(std::size_t capacity = RWCollection::DEFAULT_CAPACITY) : RWSet(capacity) {}

    KRSResolveObserver* observer = nullptr;  ///< whom the resolvers tell what they do; not owned

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
    /// Takes the text that equals the copy out of the set, whoever put it there.
    ~AddDel();
    AddDel(const AddDel&) = delete;
    AddDel& operator=(const AddDel&) = delete;

    /// True when the set already held an equal text.
    bool isDuplicate() const { return duplicate_; }

private:
    AddDelSet& set_;
    RWCollectableString copy_;
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
