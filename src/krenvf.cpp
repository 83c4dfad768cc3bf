#include "krenv.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <forward_list>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "CommandLineArguments.h"
#include "EnvSettings.h"
#include "ExecutableDirectory.h"
#include "Lifetime.h"
#include "MachineStats.h"
#include "krenvLog.h"
#include "krenvState.h"
#include "krresolve.h"
#include "krs.h"

VolatileEnvEntry g_volatileEnvTable[kVolatileEnvCapacity];
std::uint32_t g_uTableSize = 0;
int IniTable = 0;

namespace {

constexpr char kSourceFile[] = "../src/krenvf";

// --- the run-time table ---------------------------------------------------------------------------------------------

constexpr std::size_t kVolatileFieldBytes = sizeof(VolatileEnvEntry::name);

bool fitsField(const char* text) { return text != nullptr && std::strlen(text) < kVolatileFieldBytes; }

// Moved, not copied: programs pass texts that they have from this table.
void storeField(char (&field)[kVolatileFieldBytes], const char* text) {
    std::memmove(field, text, std::strlen(text) + 1);
}

// The entry of exactly that name, null when there is none.
VolatileEnvEntry* findVolatile(const char* name) {
    VolatileEnvEntry* const end = g_volatileEnvTable + g_uTableSize;
    VolatileEnvEntry* const found = std::find_if(
        g_volatileEnvTable, end, [name](const VolatileEnvEntry& entry) { return std::strcmp(entry.name, name) == 0; });
    return found != end ? found : nullptr;
}

// --- case-blind search ----------------------------------------------------------------------------------------------

// The C library's conversions take bytes above 127 as unsigned.
int lower(char character) { return std::tolower(static_cast<unsigned char>(character)); }
int upper(char character) { return std::toupper(static_cast<unsigned char>(character)); }

// True when `text`, which is not empty, stands at `at`. The first character is compared in both forms and the others in
// lower case, which differ for letters whose two forms do not convert into each other.
bool standsAt(const char* at, const char* text) {
    const int first = static_cast<unsigned char>(*at);
    if (first != lower(*text) && first != upper(*text)) return false;
    return std::equal(text + 1, text + std::strlen(text), at + 1,
                      [](char left, char right) { return lower(left) == lower(right); });
}

bool containsIgnoringCase(const char* value, const char* text) {
    const std::size_t length = std::strlen(value);
    const std::size_t wanted = std::strlen(text);
    if (length < wanted) return false;
    const char* const last = value + (length - wanted);
    for (const char* at = value; at <= last; ++at) {
        if (standsAt(at, text)) return true;
    }
    return false;
}

// --- references -----------------------------------------------------------------------------------------------------

// What one resolution may cost. Honest values need a few levels and substitutions; past these they only keep the
// process busy, and the expansion has failed as if it went round in a circle.
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

// "$(NAME)" -> the process variable NAME, "#(NAME)" -> the setting NAME; null when there is none.
const char* valueOfReference(const RWCString& text, const Match& match) {
    const RWCString name = text(match.position + 2, match.length - 3);
    return text[match.position] == '$' ? std::getenv(name.data()) : KRSGetValue(IniTable, name.data());
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

    // What stands in the way of going on here, nothing as a rule. A long text is in nobody's way before it is expanded.
    std::optional<KRSResolveFailure> obstacle() const {
        if (guard_.isDuplicate()) return KRSResolveFailure::Cycle;
        if (set_.levels > kMaxLevels) return KRSResolveFailure::Levels;
        if (set_.substitutions > 0 && text.length() > kMaxText) return KRSResolveFailure::TextLength;
        if (set_.searched > kMaxSearched) return KRSResolveFailure::Searching;
        if (set_.substitutions > kMaxSubstitutions) return KRSResolveFailure::Substitutions;
        return std::nullopt;
    }

    void putValueInPlace() { text.replace(match.position, match.length, value); }

    RWCString& text;  // the level outside's value, the outermost one's is the caller's
    Match match{0, 0};
    RWCString value;

private:
    AddDelSet& set_;
    const AddDel guard_;
};

// The search starts anew after each substitution, because what was put in may form a reference with the text around it.
// The chain's texts are remembered whole: only the very same text again is a cycle, so "#(A)#(A)" is none.
bool resolve(AddDelSet& set, RWCString& text, const RWCRegexp& reference) {
    // The innermost level in front. No recursion: a small thread's stack has no room for the longest chain.
    std::forward_list<Level> chain;
    chain.emplace_front(set, text);
    for (;;) {
        Level& level = chain.front();
        level.findNext(reference);
        if (const auto obstacle = level.obstacle()) {
            if (set.observer != nullptr) set.observer->failed(*obstacle, level.text.data());
            return false;
        }
        if (level.match) {
            const char* const value = valueOfReference(level.text, level.match);
            if (set.observer != nullptr) {
                set.observer->found({level.text.data(), level.match.position, level.match.length, value});
            }
            level.value = value;
            chain.emplace_front(set, level.value);
        } else if (std::next(chain.begin()) == chain.end()) {
            return true;
        } else {
            if (set.observer != nullptr) set.observer->resolved(level.text.data());
            chain.pop_front();
            chain.front().putValueInPlace();
        }
    }
}

// --- addresses ------------------------------------------------------------------------------------------------------

// Appends "IP4: 10.1.2.3 " or "IP6: fe80::1 "; nothing for other families.
void appendAddress(RWCString& addresses, const sockaddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, text, INET_ADDRSTRLEN);
        addresses += "IP4: ";
    } else if (address.sa_family == AF_INET6) {
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr, text, INET6_ADDRSTRLEN);
        addresses += "IP6: ";
    } else {
        return;
    }
    addresses += text;
    addresses += " ";
}

}  // namespace

// --- KREnvContainerClass --------------------------------------------------------------------------------------------

KREnvContainerClass::KREnvContainerClass() : m_pszResolvedVar(nullptr) {
    static_assert(sizeof(KREnvContainerClass) == sizeof(char*) + 9 * 4096 + 2048, "programs know the object's size");
    static_assert(offsetof(KREnvContainerClass, m_szResolvedValue) == sizeof(char*) + 7 * 4096, "and its order");
    // Only the first characters: clearing all of an object's 39 KB would cost more than what it is made for.
    for (char* const buffer : {m_szFound, m_szUserDir, m_szCwd, m_szDir, m_szName, m_szExt, m_szMadePath,
                               m_szResolvedValue, m_szMyDocuments, m_szReserved}) {
        buffer[0] = '\0';
    }
}

KREnvContainerClass::~KREnvContainerClass() { delete[] m_pszResolvedVar; }

const char* KREnvContainerClass::KRESetEnvValue(const char* name, const char* value) {
    if (!fitsField(name) || !fitsField(value)) return nullptr;
    VolatileEnvEntry* entry = findVolatile(name);
    if (entry == nullptr) {
        if (g_uTableSize == kVolatileEnvCapacity) return nullptr;
        entry = &g_volatileEnvTable[g_uTableSize];
        storeField(entry->name, name);
        storeField(entry->value, value);
        ++g_uTableSize;
    } else {
        storeField(entry->value, value);
    }
    return entry->value;
}

// A run-time value is returned as it was set, references included: the host that set it knows what it wants.
const char* KREnvContainerClass::KREGetEnvValue(const char* name) {
    const char* const value = KREGetRuntimeValue(name);
    return value != nullptr ? value : KREGetEnv(name);
}

const char* KREGetRuntimeValue(const char* name) {
    const VolatileEnvEntry* const entry = name != nullptr ? findVolatile(name) : nullptr;
    return entry != nullptr ? entry->value : nullptr;
}

const char* KREnvContainerClass::KREGetEnv(const char* name) { return KRERuntimeResolve(KRSGetValue(IniTable, name)); }

// Asks pressmark.ini alone, on purpose: a run-time value does not define a setting.
bool KREnvContainerClass::KREEnvDefined(const char* name, const char* text, bool ignoreCase) {
    char wanted[sizeof m_szResolvedValue];  // a copy, as `text` may lie in the buffer that the value is read into
    const bool mayBeContained = text != nullptr && std::strlen(text) < sizeof wanted;
    if (mayBeContained) std::strcpy(wanted, text);
    const char* const value = KREGetEnv(name);
    if (value == nullptr || !mayBeContained) return false;
    if (*wanted == '\0') return true;
    return ignoreCase ? containsIgnoringCase(value, wanted) : std::strstr(value, wanted) != nullptr;
}

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

// --- reference resolution -------------------------------------------------------------------------------------------

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

AddDel::AddDel(AddDelSet& set, const RWCString& text)
    : set_(set), copy_(text), duplicate_(set.insert(&copy_) != &copy_) {}

AddDel::~AddDel() { set_.remove(&copy_); }

bool KRSRuntimeResolve(AddDelSet& set, RWCString& text) { return resolve(set, text, runtimeReference()); }

bool KRSLoadResolve(AddDelSet& set, RWCString& text) { return resolve(set, text, loadReference()); }

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

// --- host facts -----------------------------------------------------------------------------------------------------

std::string exec(const char* command) {
    using Pipe = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    const Pipe pipe(command != nullptr ? popen(command, "r") : nullptr, &pclose);
    if (pipe == nullptr) throw std::runtime_error("popen() failed!");

    std::string output;
    while (std::feof(pipe.get()) == 0) {
        char piece[128] = "";
        const bool complete = std::fgets(piece, sizeof piece, pipe.get()) != nullptr;
        output += piece;  // of an incomplete one, what was read before the host's signal handler ran
        if (complete || std::ferror(pipe.get()) == 0) continue;
        if (errno != EINTR) break;  // a pipe that cannot be read would never come to its end
        std::clearerr(pipe.get());
    }
    return output;
}

char* KRPGetMachineName() {
    static char name[150];
    std::memset(name, 0, sizeof name);
    gethostname(name, sizeof name);
    name[sizeof name - 1] = '\0';  // neither call ends a name that fills the buffer
    if (const hostent* const host = gethostbyname(name)) {
        std::strncpy(name, host->h_name, sizeof name);
        name[sizeof name - 1] = '\0';
    }
    return name;
}

const char* KRPGetCPUInfo() {
    static std::string model = exec("cat /proc/cpuinfo | grep \"model name\"");
    // Trimmed at every call, the arithmetic wrapping round: a second call takes the name's first character off.
    // Programs that call it once see the name; the others have got used to what they see.
    const std::size_t newline = model.find('\n');
    const std::size_t colon = model.find(':');
    model = model.substr(colon + 2, newline - colon - 2);
    return model.c_str();
}

bool KRPIs64BitEnv() { return exec("getconf LONG_BIT").compare(0, 2, "64") == 0; }

const char* KRPGetIPAddress() {
    static RWCString addresses;  // never cleared: each call appends to what the calls before it have found
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return addresses.data();
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* interface = list; interface != nullptr; interface = interface->ifa_next) {
        if (interface->ifa_addr == nullptr || std::strcmp(interface->ifa_name, "lo") == 0) continue;
        appendAddress(addresses, *interface->ifa_addr);
    }
    return addresses.data();
}

char* KRPGetOSInfo() {
    static char text[256];
    utsname names{};
    uname(&names);
    std::snprintf(text, sizeof text, "Linux (%s %s)", names.sysname, names.release);
    return text;
}

bool IsNT() { return false; }

int GetProcessHandle() { return 0; }

int KRPGetWorkingSetSize() { return 0; }

// --- initialisation -------------------------------------------------------------------------------------------------

namespace {

// A fact that the report can do without: the text behind its label, empty when the host cannot tell.
template <class Fact>
std::string factOrNothing(const char* label, Fact fact) {
    try {
        return fact();
    } catch (const std::exception& error) {
        KR_LOG(Warning) << "the start-up report has no text for '" << label << "': " << error.what();
        return {};
    }
}

void writeBanner() { KR_LOG(Execution) << "/" << std::string(72, '*') << "/"; }

// Eleven records about the host and the release, so that every log tells what it was written on.
void writeStartUpReport() {
    MachineStats collector;
    KREnvMachineStats stats{};
    collector.CollectMachineStats(stats, false);

    writeBanner();
    KR_LOG(Execution) << "Machine Name " << KRPGetMachineName();
    KR_LOG(Execution) << "Machine IP: " << KRPGetIPAddress();
    KR_LOG(Execution) << "Operating System:  " << KRPGetOSInfo();
    KR_LOG(Execution) << "CPU: " << factOrNothing("CPU: ", [] { return std::string(KRPGetCPUInfo()); });
    KR_LOG(Execution) << "Memory size: " << stats.physicalMemoryBytes;
    KR_LOG(Execution) << "Bits: " << factOrNothing("Bits: ", [] {
        return std::string(KRPIs64BitEnv() ? "64 bit OS" : "32 bit OS");
    });
    KR_LOG(Execution) << "Pressmark Release " << KREnvContainerClass().KREGetEnv("KR_VERSION") << "."
                      << KREnvContainerClass().KREGetEnv("KR_BUILD");
    writeBanner();
    KR_LOG(Execution) << "KR_VERSION\t" << KREnvContainerClass().KREGetEnv("KR_VERSION") << "\tKR_BUILD\t"
                      << KREnvContainerClass().KREGetEnv("KR_BUILD") << "\t";
    writeBanner();
}

}  // namespace

int KREInit(const char* directory) {
    KR_LOG(Trace) << "KREInit";
    if (directory == nullptr) KR_LOG(Error);
    n_debug::nExecutableDirectory::gInitialize(std::string(directory));  // throws std::logic_error for null

    KREnvContainerClass container;
    const char* const found =
        container.KRPFindfileNoKREnv("pressmark.ini", directory, "$KR_BIN", "HOME", static_cast<const char*>(nullptr));
    if (found == nullptr) {
        KR_LOG(Error) << "PMEnvironment: pressmark.ini not found";
        return 0;
    }
    if (KRELoadIniFile(found) == 0) return 0;
    writeStartUpReport();
    return 1;
}

int KRELoadIniFile(const char* path, KRSLoadObserver* observer) {
    if (path == nullptr) {
        KR_LOG(Error);
        return 0;
    }
    // Stored before loading, so that #{NAME} finds what stands above it. An earlier table stays: its texts are in use.
    const int created = KRSCreateTable();
    IniTable = created;
    const LoadObservation observation(observer);
    if (KRSLoad(path, created, observation.filter()) != 0) return 1;

    KR_LOG(Error) << "Failed to load. The file contains a syntax error " << path;
    // IniTable keeps the handle: a released table simply has no values, which shows a host that went on regardless.
    KRSDestroyTable(created);
    return 0;
}

int nEnvSettings::gPressmarkIniTable() {
    // Operators' log filters know this record by its position, which stays wherever the code moves.
    constexpr int kNoIniTableLine = 61;
    if (IniTable == 0) KR_LOG_AT(Error, kNoIniTableLine);
    return IniTable;
}

namespace {

// Initialises the library from the directory of the running program, as the host's main scope opens.
struct LoadTimeInitialiser {
    LoadTimeInitialiser() {
        KREnvContainerClass container;
        char program[PATH_MAX] = "";
        // Whatever realpath leaves is used: a program in a directory that is gone still gets its log record and starts.
        static_cast<void>(KRPAbsPath(nCommandLineArguments::gGet(0).c_str(), program, sizeof program));
        if (KREInit(container.KRPGetPathDirectory(program)) == 0) KR_LOG(Error) << "failed KREInit()";
    }
};

nLifetime::StaticObject<LoadTimeInitialiser> loadTimeInitialiser;

}  // namespace
