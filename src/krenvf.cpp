#include "krenv.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "EnvSettings.h"
#include "krenvLog.h"
#include "krenvState.h"
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

// --- the table of pressmark.ini -------------------------------------------------------------------------------------

int nEnvSettings::gPressmarkIniTable() {
    // Operators' log filters know this record by its position, which stays wherever the code moves.
    constexpr int kNoIniTableLine = 61;
    if (IniTable == 0) KR_LOG_AT(Error, kNoIniTableLine);
    return IniTable;
}
