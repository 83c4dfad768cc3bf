// Loads pressmark.ini, reads each of its values, and compares them with the plain resolver of slowResolver.h.
//
// The input is a settings file. Lines that begin with "%" are removed first: %NAME=VALUE sets an environment variable.
#include <map>

#include "EnvSettings.h"
#include "environment.h"
#include "fileInMemory.h"
#include "fuzzing.h"
#include "krenv.h"
#include "krs.h"
#include "slowResolver.h"
#include "slowSettings.h"

namespace {

using Table = std::map<std::string, std::string>;

std::string takeVariables(std::string_view input) {
    fuzzedEnvironment().clear();
    std::string settings;
    while (!input.empty()) {
        std::string_view line = takeUntil(&input, '\n');
        if (line.empty() || line[0] != '%') {
            settings.append(line).append("\n");
            continue;
        }
        line.remove_prefix(1);
        const std::string name(takeUntil(&line, '='));
        fuzzedEnvironment()[name.c_str()] = std::string(line).c_str();  // up to a NUL
    }
    return settings;
}

std::optional<std::string> lookUp(const Table& table, char sign, const std::string& name) {
    return variableIn(sign == '$' ? fuzzedEnvironment() : table, name);
}

// What the load must store: entry by entry, so that each entry sees those above it.
Table loadSlowly(const SlowFile& file) {
    Table table;
    SlowResolver resolver('{', '}', [&](char sign, const std::string& name) { return lookUp(table, sign, name); });
    for (const SlowEntry& entry : file.entries) {
        if (const auto stored = resolver(entry.value)) table[entry.key] = *stored;
    }
    return table;
}

void compareReading(const Table& table) {
    SlowResolver resolver('(', ')', [&](char sign, const std::string& name) { return lookUp(table, sign, name); });
    KREnvContainerClass env;
    for (const auto& [key, stored] : table) {
        const char* const actual = env.KREGetEnv(key.c_str());
        const auto expected = resolver(stored);
        const bool fits = expected && expected->size() < 2048;
        if (fits != (actual != nullptr)) fail(key + (fits ? " can be read" : " cannot be read"));
        if (fits) requireEqual(*expected, actual, key);
    }
}

void compareSettings(int handle, const SlowFile& parsed) {
    const Table expected = loadSlowly(parsed);
    for (const SlowEntry& entry : parsed.entries) {
        const char* const stored = KRSGetValue(handle, entry.key.c_str());
        const auto value = variableIn(expected, entry.key);
        if (value.has_value() != (stored != nullptr)) fail(entry.key + " is stored or left out");
        if (value) requireEqual(*value, stored, entry.key);
    }
    compareReading(expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hushLog();
    const std::string text = takeVariables(textOf(data, size));
    const SlowFile parsed = SlowParser(text).file();
    FileInMemory::fill(text);
    const bool loaded = KRELoadIniFile(FileInMemory::path()) != 0;
    require(loaded == parsed.error.empty(), "the file is loaded or refused");
    const int handle = nEnvSettings::gPressmarkIniTable();
    if (loaded) compareSettings(handle, parsed);
    KRSDestroyTable(handle);
    return 0;
}
