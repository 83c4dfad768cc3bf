// A host program that fills what the facilities keep, and asks for it in a destructor that runs behind all of theirs.
#include <iostream>
#include <string>

#include "CommandLineArguments.h"
#include "ExecutableDirectory.h"
#include "Logging.h"
#include "krs.h"

namespace {

// Constructed before any facility is used, and so destroyed after whatever these would destroy at exit.
struct AsksAtExit {
    ~AsksAtExit() {
        PM_LOG_RECORD(nLogging::Level::Error, "Host", "host", 1) << "a record at exit";
        std::cout << nCommandLineArguments::gGet(1) << '\n'
                  << n_debug::nExecutableDirectory::gGet() << '\n'
                  << KRSLoadError() << '\n'
                  << KRSLoad("/no/such/file/of/a/destructor", table, nullptr) << ' ' << KRSLoadError() << '\n'
                  << KRSGetValue(table, "KEY") << std::endl;
    }
    int table = 0;
} asksAtExit;

}  // namespace

// The only argument is a settings file with a KEY.
int main(int /*argc*/, char** argv) {
    const char* const arguments[] = {"host", "an argument that is too long for a string without memory of its own"};
    nCommandLineArguments::gSet(2, arguments);
    n_debug::nExecutableDirectory::gInitialize("/a/directory/that/is/too/long/for/a/string/without/memory");
    const std::string prefix = "a sink with memory of its own, which says: ";
    nLogging::gSetSink([prefix](const nLogging::Record& record) { std::cout << prefix << record.text << '\n'; });
    asksAtExit.table = KRSCreateTable();
    KRSLoad(argv[1], asksAtExit.table, nullptr);
    KRSLoad("/no/such/file/while/main/runs", asksAtExit.table, nullptr);
    return 0;
}
