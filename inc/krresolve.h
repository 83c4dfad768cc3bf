// krresolve.h - expands the references in values; KREnvContainerClass and KREInit are built on it.
//
// An expansion is a chain of nested levels: the text, the value of a reference in it, the value of a reference in that
// value, and so on. An AddDelSet holds the texts in progress on the chain. A text that comes back is a cycle.
//
// A program that wants to show where a value comes from sets an observer:
//
//     AddDelSet set;
//     set.observer = &myObserver;
//     RWCString text("#(RESULTS_DIR)/today");
//     KRSRuntimeResolve(set, text);
//
// Threads: the resolvers keep their state in the caller's set and on the stack. They may run on several threads if each
// uses a set of its own. KRSLoadFilter writes one static text and may be used by one thread at a time.
#pragma once

#include <cstddef>
#include <string>

#include "RWCString.h"
#include "RWSet.h"
#include "krexport.h"

/// A reference that an expansion is about to replace. The texts are valid during the observer's call.
struct KRSReference {
    const char* text;      ///< the text in progress that contains it, in its current state
    std::size_t position;  ///< where the reference begins in it
    std::size_t length;    ///< its length, sign and brackets included
    const char* value;     ///< the value of the name, not yet expanded; null when it is not defined

    /// True for $(NAME) and ${NAME}, an environment variable; false for a setting of pressmark.ini.
    bool isVariable() const { return text[position] == '$'; }
    /// The name between the brackets.
    std::string name() const { return {text + position + 2, length - 3}; }
    /// The reference as it is written.
    std::string written() const { return {text + position, length}; }
};

/// Why an expansion failed.
enum class KRSResolveFailure {
    Cycle,          ///< a text in progress came up again
    Levels,         ///< more than 512 nested levels
    Substitutions,  ///< more than 65,536 references replaced
    TextLength,     ///< a text in progress longer than 1 MiB
    Searching       ///< more than 256 Mi characters searched
};

/// Observes an expansion step by step, on its thread, for programs that show why a value is what it is. An expansion
/// without an observer costs nothing more. The observer changes nothing; what it throws passes through the resolver.
class KRSResolveObserver {
public:
    /// A reference was found. The references in its value follow, nested, until resolved() ends it.
    virtual void found(const KRSReference& reference) = 0;
    /// Ends the latest reference that has not ended: its value was expanded to `value`, which now replaces the
    /// reference.
    virtual void resolved(const char* value) = 0;
    /// The expansion failed at `text`, the innermost text in progress; no further call follows.
    virtual void failed(KRSResolveFailure why, const char* text) = 0;

protected:
    ~KRSResolveObserver() = default;
};

/// Observes how pressmark.ini is loaded (KRELoadIniFile): entry by entry in file order, with the expansion of the
/// references in braces between begun() and ended().
class KRSLoadObserver : public KRSResolveObserver {
public:
    /// The value of an entry, as written in the file, is about to be expanded.
    virtual void begun(const char* key, const char* value) = 0;
    /// The entry was stored as `value`, or left out when `value` is null.
    virtual void ended(const char* value) = 0;

protected:
    ~KRSLoadObserver() = default;
};

/// The texts whose expansion is in progress, and what the expansion has cost so far. One per top-level expansion.
class AddDelSet : public RWSet {
public:
    /// Creates an empty set with room for `capacity` texts; it grows when there are more.
    explicit AddDelSet(std::size_t capacity = RWCollection::DEFAULT_CAPACITY) : RWSet(capacity) {}

    KRSResolveObserver* observer = nullptr;  ///< receives the steps of the resolvers; not owned

    // Counted and limited by the resolvers: an expansion that costs more fails.
    std::size_t levels = 0;         ///< nested levels now
    std::size_t substitutions = 0;  ///< references replaced so far
    std::size_t searched = 0;       ///< characters searched so far
};

/// Holds a text in a set for the length of a scope.
class KRENV_EXPORT AddDel {
public:
    /// Inserts a copy of `text`, unless the set holds an equal text already.
    AddDel(AddDelSet& set, const RWCString& text);
    /// Removes the text that equals the copy from the set, whoever put it there.
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
/// limit is passed (see KREnvContainerClass::KRERuntimeResolve).
KRENV_EXPORT bool KRSRuntimeResolve(AddDelSet& set, RWCString& text);

/// The same for ${NAME} and #{NAME}. Braces may stand in a name: "${A}${B}" is one reference, to the name "A}${B".
KRENV_EXPORT bool KRSLoadResolve(AddDelSet& set, RWCString& text);

/// The value filter of pressmark.ini. Returns `value` (null counts as empty) with its references in braces expanded, in
/// a static text that the next call overwrites. Null, after an Error record, when the expansion failed. The key is not
/// used.
KRENV_EXPORT const char* KRSLoadFilter(const char* key, const char* value);
