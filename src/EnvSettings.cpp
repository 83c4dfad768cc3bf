#include "EnvSettings.h"

#include "krenvLog.h"
#include "krs.h"

namespace {

constexpr char kSourceFile[] = "../src/EnvSettings";

// Operators' log filters know the records of this file by their positions. These stay, wherever the code moves.
constexpr int kCannotReadLine = 27;
constexpr int kCannotFindLine = 47;

constexpr std::size_t kMaxPathLength = 4095;

}  // namespace

namespace nEnvSettings {

void gFileInitTable(KREnvContainerClass& env, const char* fileName, int& handle) {
    handle = KRSCreateTable();
    const std::string name = fileName != nullptr ? fileName : "";  // a copy: it may be a value that `env` has just read
    const char* const directory = env.KREGetEnv("KR_BIN");
    if (directory == nullptr) return;

    const std::string path = std::string(directory) + "/" + name;
    if (path.size() <= kMaxPathLength && KRSLoad(path.c_str(), handle, nullptr) != 0) return;
    KR_LOG_AT(Error, kCannotReadLine) << "can't read file " << (fileName != nullptr ? name.c_str() : nullptr) << "\t"
                                      << path;
}

void gGetPropertyString(OptionalValue<std::string>& out, int handle, const char* key) {
    KREnvContainerClass expander;
    const char* const value = expander.KRERuntimeResolve(KRSGetValue(handle, key));
    if (value != nullptr) out.set(value);
}

std::string gGetPropertyStream(int handle, const char* key) {
    OptionalValue<std::string> value;
    gGetPropertyString(value, handle, key);
    if (value.has()) return value.get();

    KR_LOG_AT(Error, kCannotFindLine) << "can't find " << key;
    return {};
}

}  // namespace nEnvSettings
