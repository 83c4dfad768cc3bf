#include <chrono>
#include <fstream>
#include <map>

#include "CommandLineArguments.h"
#include "ExecutableDirectory.h"
#include "Lifetime.h"
#include "Logging.h"
#include "Realtime.h"
#include "krs.h"

namespace {

using Table = std::map<std::string, std::string>;

std::map<int, Table>& tables() {
    static std::map<int, Table> tables;
    return tables;
}

std::vector<std::string> arguments;
std::string executableDirectory;

}  // namespace

int KRSCreateTable() {
    static int last = 0;
    tables()[++last];
    return last;
}

// The grammar of this product: KEY=value, nothing else.
int KRSLoad(const char* path, int handle, KRSFilter filter) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) return 0;
        const std::string key = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        const char* const stored = filter != nullptr ? filter(key.c_str(), value.c_str()) : value.c_str();
        if (stored != nullptr) tables()[handle][key] = stored;
    }
    return file.eof() ? 1 : 0;
}

const char* KRSGetValue(int handle, const char* key) {
    const auto table = tables().find(handle);
    if (table == tables().end()) return nullptr;
    const auto entry = table->second.find(key);
    return entry != table->second.end() ? entry->second.c_str() : nullptr;
}

void KRSDestroyTable(int handle) { tables().erase(handle); }

std::vector<nLogging::Record>& nLogging::gRecords() {
    static std::vector<Record> records;
    return records;
}

std::vector<std::function<std::shared_ptr<void>()>>& nLifetime::gRegistered() {
    static std::vector<std::function<std::shared_ptr<void>()>> registered;
    return registered;
}

nLifetime::MainScope::MainScope(int argc, const char* const* argv) {
    arguments.assign(argv, argv + argc);
    for (const auto& make : gRegistered()) objects_.push_back(make());
}

std::string nCommandLineArguments::gGet(int index) { return arguments.at(static_cast<std::size_t>(index)); }

void n_debug::nExecutableDirectory::gInitialize(std::string directory) { executableDirectory = directory; }
std::string n_debug::nExecutableDirectory::gGet() { return executableDirectory; }

std::uint64_t nRealtime::gCurrentRaw_compiler() {
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch() /
                                      std::chrono::microseconds(1));
}
