#include "krresolve.h"

#include <cstdlib>
#include <cstring>
#include <forward_list>
#include <iterator>
#include <new>
#include <optional>

#include "krenv.h"
#include "krenvLoad.h"
#include "krenvLog.h"
#include "krenvState.h"
#include "krs.h"

namespace {

constexpr char kSourceFile[] = "../src/krenvf";  // operators' log filters know the position, wherever the code stands

// --- references -----------------------------------------------------------------------------------------------------

// What one resolution may cost. Honest values need a few levels and substitutions; past these they only keep the
// process busy, and the expansion fails as if it had a cycle.
constexpr std::size_t kMaxText = std::size_t{1} << 20;
constexpr std::size_t kMaxLevels = 512;
constexpr std::size_t kMaxSubstitutions = 65'536;
constexpr std::size_t kMaxSearched = std::size_t{256} << 20;

// Compiled at the first use and never destroyed, so that destructors of the host may still read variables.
const RWCRegexp& runtimeReference() {
    static const RWCRegexp& pattern = *new RWCRegexp("[$#]([^ \t\n()]+)");
    return pattern;
}

const RWCRegexp& loadReference() {
    static const RWCRegexp& pattern = *new RWCRegexp("[$#]{[^ \t\n()]+}");
    return pattern;
}

bool hasReference(const char* text, std::size_t length, const RWCRegexp& reference) {
    std::size_t matched = 0;
    return reference.search(text, length, &matched) != RWCRegexp::npos;
}

struct Match {
    std::size_t position;
    std::size_t length;
    explicit operator bool() const { return position != RWCRegexp::npos; }
};

// "$(NAME)" -> the environment variable NAME, "#(NAME)" -> the setting NAME; null when there is none.
const char* valueOfReference(const RWCString& text, const Match& match) {
    const RWCString name = text(match.position + 2, match.length - 3);
    return text[match.position] == '$' ? std::getenv(name.data()) : KRSGetValue(IniTable, name.data());
}

// Which limit an expansion is past with `text` on so many levels, none as a rule. A long text is in nobody's way before it
// is expanded.
std::optional<KRSResolveFailure> passedLimit(const AddDelSet& set, const RWCString& text, std::size_t levels) {
    if (levels > kMaxLevels) return KRSResolveFailure::Levels;
    if (set.substitutions > 0 && text.length() > kMaxText) return KRSResolveFailure::TextLength;
    if (set.searched > kMaxSearched) return KRSResolveFailure::Searching;
    if (set.substitutions > kMaxSubstitutions) return KRSResolveFailure::Substitutions;
    return std::nullopt;
}

// One level of the chain: a text in progress, and the reference in it that is being replaced.
class Level {
public:
    Level(AddDelSet& set, RWCString& inProgress) : text(inProgress), set_(set), guard_(set, inProgress) {
        ++set_.levels;
    }
    ~Level() { --set_.levels; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

    void findNext(const RWCRegexp& reference) {
        match.position = text.index(reference, &match.length);
        set_.searched += match ? match.position + match.length : text.length();
        if (match) ++set_.substitutions;
    }

    // What stands in the way of going on here, nothing as a rule.
    std::optional<KRSResolveFailure> obstacle() const {
        if (guard_.isDuplicate()) return KRSResolveFailure::Cycle;
        return passedLimit(set_, text, set_.levels);
    }

    void putValueInPlace() { text.replace(match.position, match.length, value); }

    RWCString& text;  // the level outside's value, the outermost one's is the caller's
    Match match{0, 0};
    RWCString value;

private:
    AddDelSet& set_;
    const AddDel guard_;
};

bool failed(AddDelSet& set, KRSResolveFailure why, const RWCString& text) {
    if (set.observer != nullptr) set.observer->failed(why, text.data());
    return false;
}

// Most values hold no reference. They take no level of their own: each text in progress on the chain does hold one, so that
// none of them is the same. Texts that the caller put into the set may be.
bool isPlain(const AddDelSet& set, const RWCString& value, const RWCRegexp& reference) {
    return set.entries() == set.levels && !hasReference(value.data(), value.length(), reference);
}

// The search starts anew after each substitution, because what was put in may form a reference with the text around it.
// The chain's texts are remembered whole: only the very same text again is a cycle, so "#(A)#(A)" is none.
bool resolve(AddDelSet& set, RWCString& text, const RWCRegexp& reference) {
    // The innermost level in front. No recursion: a small thread's stack has no room for the longest chain.
    std::forward_list<Level> chain;
    chain.emplace_front(set, text);
    for (;;) {
        Level& level = chain.front();
        level.findNext(reference);
        if (const auto obstacle = level.obstacle()) return failed(set, *obstacle, level.text);
        if (level.match) {
            const char* const value = valueOfReference(level.text, level.match);
            if (set.observer != nullptr) {
                set.observer->found({level.text.data(), level.match.position, level.match.length, value});
            }
            level.value = value;
            if (!isPlain(set, level.value, reference)) {
                chain.emplace_front(set, level.value);
                continue;
            }
            set.searched += level.value.length();
            if (const auto limit = passedLimit(set, level.value, set.levels + 1)) {
                return failed(set, *limit, level.value);
            }
            if (set.observer != nullptr) set.observer->resolved(level.value.data());
            level.putValueInPlace();
        } else if (std::next(chain.begin()) == chain.end()) {
            return true;
        } else {
            if (set.observer != nullptr) set.observer->resolved(level.text.data());
            chain.pop_front();
            chain.front().putValueInPlace();
        }
    }
}

}  // namespace

AddDel::AddDel(AddDelSet& set, const RWCString& text)
    : set_(set), copy_(text), duplicate_(set.insert(&copy_) != &copy_) {}

AddDel::~AddDel() { set_.remove(&copy_); }

bool KRSRuntimeResolve(AddDelSet& set, RWCString& text) { return resolve(set, text, runtimeReference()); }

bool KRSLoadResolve(AddDelSet& set, RWCString& text) { return resolve(set, text, loadReference()); }

// --- at reading -----------------------------------------------------------------------------------------------------

const char* KREnvContainerClass::KRERuntimeResolve(const char* text) {
    if (text == nullptr) return nullptr;
    const std::size_t length = std::strlen(text);
    try {
        if (!hasReference(text, length, runtimeReference())) return storeResolved(text, length);
        RWCString resolved(text);
        AddDelSet inProgress;
        return KRSRuntimeResolve(inProgress, resolved) ? storeResolved(resolved.data(), resolved.length()) : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;  // memory is one more limit that an expansion can meet
    }
}

// Null, with the buffer as it was, for a text that does not fit.
const char* KREnvContainerClass::storeResolved(const char* text, std::size_t length) {
    if (length >= sizeof m_szResolvedValue) return nullptr;
    std::memmove(m_szResolvedValue, text, length);  // it may lie in the buffer: results are resolved again
    m_szResolvedValue[length] = '\0';
    return m_szResolvedValue;
}

// --- at loading -----------------------------------------------------------------------------------------------------

namespace {

// Puts what the filter answers into its one text, where it stays until the next answer.
const RWCString& keepFiltered(const char* text) {
    static RWCString resolvedVal;
    resolvedVal = text;
    return resolvedVal;
}

// Who watches the load that is running. A load that a sink or an observer starts meanwhile has its own.
KRSLoadObserver* g_loadObserver = nullptr;

// Watches as long as a scope lasts.
class LoadObservation {
public:
    explicit LoadObservation(KRSLoadObserver* observer) : outer_(g_loadObserver) { g_loadObserver = observer; }
    ~LoadObservation() { g_loadObserver = outer_; }
    LoadObservation(const LoadObservation&) = delete;
    LoadObservation& operator=(const LoadObservation&) = delete;

    // What KRSLoad is to call for each entry.
    KRSFilter filter() const { return g_loadObserver != nullptr ? &observedFilter : &KRSLoadFilter; }

private:
    static const char* observedFilter(const char* key, const char* value) {
        KRSLoadObserver* const observer = g_loadObserver;
        observer->begun(key, value);
        const char* const filtered = KRSLoadFilter(key, value);
        if (filtered == nullptr) {
            observer->ended(nullptr);
            return nullptr;
        }
        const RWCString stored(filtered);  // a load that the observer starts rewrites the filter's text
        observer->ended(stored.data());
        return keepFiltered(stored.data()).data();
    }

    KRSLoadObserver* const outer_;
};

}  // namespace

const char* KRSLoadFilter(const char* /*key*/, const char* value) {
    const RWCString& kept = keepFiltered(value);
    if (!hasReference(kept.data(), kept.length(), loadReference())) return kept.data();

    AddDelSet inProgress;
    inProgress.observer = g_loadObserver;
    RWCString resolved(kept);  // apart, because an observer may start a load of its own
    if (KRSLoadResolve(inProgress, resolved)) return keepFiltered(resolved.data()).data();
    // The value is left out on purpose: it can be a megabyte long.
    KR_LOG(Error) << "\n endless loop while resolving value ";
    return nullptr;
}

int loadExpanding(const char* path, int handle, KRSLoadObserver* observer) {
    const LoadObservation observation(observer);
    return KRSLoad(path, handle, observation.filter());
}
