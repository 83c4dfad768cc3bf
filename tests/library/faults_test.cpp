// Every exported operation while, one after another, each call that it makes of the C library fails.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "CommandLineArguments.h"
#include "EnvSettings.h"
#include "ExecutableDirectory.h"
#include "Lifetime.h"
#include "Logging.h"
#include "MachineStats.h"
#include "RWCRegexp.h"
#include "Realtime.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"
#include "support/FaultSweep.h"

namespace {

using Operations = std::vector<Operation>;
using Run = std::function<void(Host&, Answer&)>;
using Answers = std::vector<std::string>;
const std::string kNoMemory = "std::bad_alloc";

// What functions may answer that promise a failure as their result, also where memory runs out.
Answers sameOr(const char* failure) { return {kSame, failure}; }
Answers sameOrNoMemoryOr(const char* failure) { return {kSame, kNoMemory, failure}; }

// Each row of the tables below is an Operation: the symbols that it shows, the call, its answers when a function fails,
// what is made ready before (with the buffer to watch), and what the call answers the next time.

const char* withSettings(Host& host) {
    host.loadSettings();
    return nullptr;
}

// --- settings and references ----------------------------------------------------------------------------------------

const char* oldSetting(Host& host) {
    host.loadSettings();
    return host.env.KREGetEnv("OLD");
}

// Releases the table that a call has left in a handle, whatever became of the call.
struct TableOwner {
    explicit TableOwner(int* handle) : handle_(handle) {}
    ~TableOwner() { KRSDestroyTable(*handle_); }
    int* handle_;
};

Operations settingsOperations() {
    return {
        {{"KREnvContainerClass::KREnvContainerClass()", "KREnvContainerClass::~KREnvContainerClass()"},
         [](Host&, Answer& answer) {
             const KREnvContainerClass made;
             static_cast<void>(made);
             answer << "made";
         }},
        {{"KREnvContainerClass::KRESetEnvValue(char const*, char const*)", "KREGetRuntimeValue(char const*)"},
         [](Host& host, Answer& answer) {
             answer << host.env.KRESetEnvValue("NAME", "value") << KREGetRuntimeValue("NAME");
         }},
        {{"KREnvContainerClass::KREGetEnvValue(char const*)"},
         [](Host& host, Answer& answer) { answer << host.env.KREGetEnvValue("READ"); },
         {{"new", sameOr("null")}, {"getenv", {" and a value*"}}},
         oldSetting},
        {{"KREnvContainerClass::KREGetEnv(char const*)"},
         [](Host& host, Answer& answer) { answer << host.env.KREGetEnv("READ"); },
         {{"new", sameOr("null")}, {"getenv", {" and a value*"}}},
         oldSetting},
        {{"KREnvContainerClass::KREEnvDefined(char const*, char const*, bool)"},
         [](Host& host, Answer& answer) { answer << host.env.KREEnvDefined("READ", "PROCESS", true); },
         {{"new", sameOr("false")}, {"getenv", {"false"}}},
         withSettings},
        {{"KREnvContainerClass::KRERuntimeResolve(char const*)"},
         [](Host& host, Answer& answer) { answer << host.env.KRERuntimeResolve("$(SOME_VARIABLE) of now"); },
         {{"new", sameOr("null")}, {"getenv", {" of now"}}}},
        {{"KRSRuntimeResolve(AddDelSet&, RWCString&)", "AddDel::AddDel(AddDelSet&, RWCString const&)",
          "AddDel::~AddDel()"},
         [](Host&, Answer& answer) {
             AddDelSet set;
             RWCString text("#(LONG) and $(SOME_VARIABLE)");
             answer << KRSRuntimeResolve(set, text) << text.data();
         },
         {{"getenv", {"true a value*of its own and "}}},
         withSettings},
        {{"KRSLoadResolve(AddDelSet&, RWCString&)"},
         [](Host&, Answer& answer) {
             AddDelSet set;
             RWCString text("#{LONG} and ${SOME_VARIABLE}");
             answer << KRSLoadResolve(set, text) << text.data();
         },
         {{"getenv", {"true a value*of its own and "}}},
         withSettings},
        {{"KRSLoadFilter(char const*, char const*)"},
         [](Host&, Answer& answer) { answer << KRSLoadFilter("KEY", "a long value with ${SOME_VARIABLE} in it"); },
         {{"getenv", {kSame, "a long value with  in it"}}}},
        {{"KREInit(char const*)"},
         [](Host& host, Answer& answer) { answer << KREInit("bin") << host.env.KREGetEnv("KR_BUILD"); },
         {{"new", sameOrNoMemoryOr("0 null")},
          {"stat", sameOr("0 null")},
          {"getenv", sameOr("0 null")},
          {"open", {"0 null"}},
          {"fstat", {"0 null"}},
          {"read EIO", {"0 null"}}}},
        {{"KRELoadIniFile(char const*, KRSLoadObserver*)"},
         [](Host& host, Answer& answer) {
             answer << KRELoadIniFile("bin/pressmark.ini", nullptr) << host.env.KREGetEnv("LOADED");
         },
         {{"new", {kSame, "0 null", "1 null"}},
          {"open", {"0 null"}},
          {"fstat", {"0 null"}},
          {"read EIO", {"0 null"}},
          {"getenv", {kSame, "1  and a value*"}}}},
        {{"nEnvSettings::gPressmarkIniTable()"},
         [](Host&, Answer& answer) { answer << nEnvSettings::gPressmarkIniTable(); }},
        {{"nEnvSettings::gFileInitTable(KREnvContainerClass&, char const*, int&)"},
         [](Host& host, Answer& answer) {
             const TableOwner owner(&host.handle);
             nEnvSettings::gFileInitTable(host.env, "product.ini", host.handle);
             answer << KRSGetValue(host.handle, "PRODUCT_NAME");
         },
         {{"new", sameOrNoMemoryOr("null")}, {"open", {"null"}}, {"fstat", {"null"}}, {"read EIO", {"null"}}},
         withSettings},
        {{"nEnvSettings::gGetPropertyString(OptionalValue<std::__cxx11::basic_string<char, std::char_traits<char>, "
          "std::allocator<char> > >&, int, char const*)"},
         [](Host&, Answer& answer) {
             OptionalValue<std::string> value;
             nEnvSettings::gGetPropertyString(value, nEnvSettings::gPressmarkIniTable(), "READ");
             answer << (value.has() ? value.get().c_str() : "nothing");
         },
         {{"new", sameOrNoMemoryOr("nothing")}, {"getenv", {" and a value*"}}},
         withSettings},
        {{"nEnvSettings::gGetPropertyStream[abi:cxx11](int, char const*)"},
         [](Host&, Answer& answer) {
             answer << nEnvSettings::gGetPropertyStream(nEnvSettings::gPressmarkIniTable(), "READ");
         },
         {{"new", sameOrNoMemoryOr("")}, {"getenv", {kSame, " and a value*"}}},
         withSettings},
        {{"KRVersionInfo(char const*)", "table",
          "KRVProductName()",           "KRVProductNameDisplay()",
          "KRVProductsList()",          "KRVProductFileName()",
          "KRVProductVersion()",        "KRVProductVersionName()",
          "KRVProductMessage()",        "KRVProductErrorMessage()",
          "KRVProductQuery()",          "KRVEditorTitle()",
          "KRVProductIniFile()",        "KRVProductIniBackup()",
          "KRVProductHelpFile()",       "KRVProductFrmFile()",
          "KRVProductCoverX()",         "KRVProductCoverY()",
          "KRVProductIconNumber()",     "KRVProductType()"},
         [](Host&, Answer& answer) {
             answer << KRVersionInfo("BMP_X_SIZE") << KRVProductName() << KRVProductNameDisplay() << KRVProductsList()
                    << KRVProductFileName() << KRVProductVersion() << KRVProductVersionName() << KRVProductMessage()
                    << KRVProductErrorMessage() << KRVProductQuery() << KRVEditorTitle() << KRVProductIniFile()
                    << KRVProductIniBackup() << KRVProductHelpFile() << KRVProductFrmFile() << KRVProductCoverX()
                    << KRVProductCoverY() << KRVProductIconNumber() << KRVProductType();
         },
         {},
         [](Host&) -> const char* {
             table = KRSCreateTable();
             KRSLoad("bin/product.ini", table, nullptr);
             return nullptr;
         }},
        {{"KREInit(char const*)", "KRELoadIniFile(char const*, KRSLoadObserver*)"},
         [](Host&, Answer& answer) { answer << KRELoadIniFile(nullptr) << KREInit(nullptr); },
         {{"new", {kSame, kNoMemory, "0 std::bad_alloc"}}},
         {},
         {"0 thrown:*"}},
        {{"KRSLoadFilter(char const*, char const*)"},
         [](Host&, Answer& answer) { answer << KRSLoadFilter("KEY", "${LOOP} goes round"); },
         {{"getenv", sameOr(" goes round")}},
         [](Host&) -> const char* {
             setenv("LOOP", "${LOOP}", 1);
             return nullptr;
         }},
    };
}

// --- paths and files ------------------------------------------------------------------------------------------------

using OnFault = std::map<std::string, Answers>;

template <class Ask>
Operation pathOperation(const char* symbol, Ask askEnv, const OnFault& onFault = {}) {
    return {{"KREnvContainerClass::" + std::string(symbol)},
            [askEnv](Host& host, Answer& answer) { answer << askEnv(host.env); },
            onFault,
            withSettings};
}

using Env = KREnvContainerClass;

// The command that was given to the shell since it was made.
struct CommandsAsked {
    CommandsAsked() { FaultBorder::instance().commands.clear(); }
    const char* first() const {
        const auto& commands = FaultBorder::instance().commands;
        return commands.empty() ? "nothing" : commands.front().c_str();
    }
};

Operations pathOperations() {
    const char* const end = nullptr;
    return {
        {{"KREnvContainerClass::KRPSplitPath(char const*, char**, char**, char**)"},
         [](Host& host, Answer& answer) {
             char *dir = nullptr, *name = nullptr, *ext = nullptr;
             host.env.KRPSplitPath("bin", &dir, &name, &ext);
             answer << dir << name << ext;
         },
         {{"stat", {"bin "}}}},  // what cannot be examined is split as a text
        pathOperation("KRPGetPathDirectory(char const*)",
                      [](Env& env) { return env.KRPGetPathDirectory("bin/x.txt"); }),
        pathOperation("KRPGetPathName(char const*)", [](Env& env) { return env.KRPGetPathName("bin/x.txt"); }),
        pathOperation("KRPGetPathExt(char const*)", [](Env& env) { return env.KRPGetPathExt("bin/x.txt"); }),
        {{"KREnvContainerClass::KRPMakePath(char const*, char const*, char const*)"},
         [](Host& host, Answer& answer) { answer << host.env.KRPMakePath("bin", "x", "txt"); },
         {},
         [](Host& host) { return host.env.KRPMakePath("old", "old", "old"); }},
        {{"KREnvContainerClass::KRPConcatDirAndName(char const*, char const*)"},
         [](Host& host, Answer& answer) { answer << host.env.KRPConcatDirAndName("bin", "x.txt"); },
         {},
         [](Host& host) { return host.env.KRPMakePath("old", "old", "old"); }},
        pathOperation("KRPReplacePathExt(char const*, char const*)",
                      [](Env& env) { return env.KRPReplacePathExt("bin/x.txt", "md"); }),
        pathOperation("KRPReplacePathName(char const*, char const*)",
                      [](Env& env) { return env.KRPReplacePathName("bin/x.txt", "y"); }),
        {{"KREnvContainerClass::KRPAdjustPathLen(char const*, char*, int)"},
         [](Host& host, Answer& answer) {
             answer << host.env.KRPAdjustPathLen("/some/where/far/away/file.txt", host.out, 20);
         },
         {},
         [](Host& host) -> const char* { return host.out; }},
        {{"KREnvContainerClass::KRPGetCwd()"},
         [](Host& host, Answer& answer) { answer << host.env.KRPGetCwd(); },
         {{"getcwd", {"null"}}},
         [](Host& host) { return host.env.KRPGetCwd(); }},
        {{"KRPGetCurrentDir(char*, int)"},
         [](Host& host, Answer& answer) { answer << KRPGetCurrentDir(host.out, sizeof host.out); },
         {{"getcwd", {"null"}}},
         [](Host& host) -> const char* { return host.out; }},
        {{"KRPAbsPath(char const*, char*, int)"},
         [](Host& host, Answer& answer) { answer << KRPAbsPath("bin", host.out, sizeof host.out) << host.out; },
         {{"realpath", {"false old"}}}},
        pathOperation("KRPResolvePathVarNoKREnv(char const*)",
                      [](Env& env) { return env.KRPResolvePathVarNoKREnv("HOME"); }, {{"getenv", {"null"}}}),
        pathOperation("KRPResolvePathVar(char const*)", [](Env& env) { return env.KRPResolvePathVar("#INCLUDE_PATH"); },
                      {{"new", sameOr("null")}}),
        pathOperation("searchInPath(char const*, char const*)",
                      [](Env& env) { return env.searchInPath("file.txt", "docs:bin"); }, {{"stat", sameOr("null")}}),
        pathOperation("KRPSearchPath(char const*)", [](Env& env) { return env.KRPSearchPath("file.txt"); },
                      {{"stat", sameOr("null")}, {"getenv", {"null"}}}),
        pathOperation("KRPPathFileExist(char const*, char const*)",
                      [](Env& env) { return env.KRPPathFileExist("bin", "file.txt"); }, {{"stat", sameOr("null")}}),
        pathOperation("KRPFindfile(char const*, char const*, ...)",
                      [=](Env& env) { return env.KRPFindfile("found.txt", "HOME", "#INCLUDE_PATH", end); },
                      {{"new", sameOrNoMemoryOr("null")}, {"stat", sameOr("null")}, {"getenv", {kSame}}}),
        pathOperation("KRPFindfileNoKREnv(char const*, char const*, ...)",
                      [=](Env& env) { return env.KRPFindfileNoKREnv("file.txt", "HOME", "$KR_BIN", end); },
                      {{"stat", sameOr("null")}, {"getenv", sameOr("null")}}),
        pathOperation("KRPResolveFilePath(char const*, char const*)",
                      [](Env& env) { return env.KRPResolveFilePath("new.txt", "#INCLUDE_PATH"); },
                      {{"new", sameOrNoMemoryOr("null")}, {"stat", sameOr("null")}}),
        pathOperation("KRPResolveFilePathNoKREnv(char const*, char const*)",
                      [](Env& env) { return env.KRPResolveFilePathNoKREnv("new.txt", "MYDOCUMENTS"); },
                      {{"stat", sameOr("null")}, {"getenv", {"null"}}}),
        {{"KREnvContainerClass::KRPGetFullName(char const*, char*, int)"},
         [](Host& host, Answer& answer) {
             answer << host.env.KRPGetFullName("bin/new.txt", host.out, sizeof host.out);
             answer << host.env.KRPGetFullName("found.txt", host.out, sizeof host.out);
         },
         {{"new", {kSame, "@/bin/new.txt std::bad_alloc", "@/bin/new.txt null"}},
          {"stat", sameOr("@/bin/new.txt null")},
          {"realpath", {"null @/docs/found.txt", "@/bin/new.txt ", "null "}}},
         withSettings},
        pathOperation("KRPFileExist(char const*)", [](Env& env) { return env.KRPFileExist("bin"); },
                      {{"stat", {"false"}}}),
        pathOperation("KRPFileExist(char const*, bool)", [](Env& env) { return env.KRPFileExist("bin", true); },
                      {{"stat", {"false"}}}),
        {{"KREnvContainerClass::KRPGetUserDir()"},
         [](Host& host, Answer& answer) { answer << host.env.KRPGetUserDir(); },
         {{"getenv", {"null"}}},
         [](Host& host) { return host.env.KRPGetUserDir(); }},
        {{"KREnvContainerClass::KRPGetMyDocuments()"},
         [](Host& host, Answer& answer) { answer << host.env.KRPGetMyDocuments(); },
         {{"getenv", {"null"}}},
         [](Host& host) { return host.env.KRPGetMyDocuments(); }},
        {{"KREnvContainerClass::KRPGetTempName(char const*)"},
         [](Host& host, Answer& answer) {
             const char* const name = host.env.KRPGetTempName("HOME");
             answer << (name == nullptr ? "null" : std::strstr(name, "/home/tmp") != nullptr ? "in home" : "in /tmp");
         },
         {{"new", sameOr("null")}, {"tempnam", {"null"}}, {"getenv", {"in /tmp"}}}},
        {{"KRPIsClosedFileADirectory(char const*)"},
         [](Host&, Answer& answer) { answer << KRPIsClosedFileADirectory("bin"); },
         {{"stat", {"false"}}}},
        {{"KRPIsOpenFileADirectory(_IO_FILE*)"},
         [](Host&, Answer& answer) { answer << KRPIsOpenFileADirectory(stdin); },
         {{"fstat", {"false"}}},
         [](Host&) -> const char* {
             const int directory = open("bin", O_RDONLY);
             dup2(directory, STDIN_FILENO);
             return nullptr;
         }},
        {{"filelength(int)"},
         [](Host&, Answer& answer) { answer << filelength(STDIN_FILENO); },
         {{"lseek", sameOr("-1")}},
         [](Host&) -> const char* {
             dup2(open("bin/file.txt", O_RDONLY), STDIN_FILENO);
             return nullptr;
         }},
        {{"KRPCreateDirectory(char const*)"},
         [](Host&, Answer& answer) {
             answer << KRPCreateDirectory("made");
             rmdir("made");
         },
         {{"stat", {kSame}}, {"mkdir", {"false"}}}},
        {{"KRPRemoveAllDirectories(char const*)"},
         [](Host&, Answer& answer) {
             const CommandsAsked commands;
             KRPRemoveAllDirectories("/tmp/a directory; and more");
             answer << commands.first();
         },
         {{"new", sameOr("nothing")}, {"system", {"nothing"}}}},
        {{"KRPCopyFile(char const*, char const*)"},
         [](Host&, Answer& answer) {
             const CommandsAsked commands;
             answer << KRPCopyFile("bin/file.txt", "a directory; and more") << commands.first();
         },
         {{"new", sameOr("false nothing")}, {"stat", {"false nothing"}}, {"system", {"false nothing"}}}},
        {{"KRPGetTempDirectory()"},
         [](Host&, Answer& answer) { answer << KRPGetTempDirectory(); },
         {{"opendir", {""}}}},
        {{"KRPChdir(char const*)"},
         [](Host&, Answer& answer) { answer << KRPChdir("../docs"); },
         {{"chdir", {"false"}}},
         [](Host&) -> const char* {
             KRPChdir("bin");
             return nullptr;
         }},
        {{"LogLastError(char const*)"},
         [](Host&, Answer& answer) {
             errno = EACCES;
             LogLastError("A call has failed");
             answer << "logged";
         }},
        {{"KREnvContainerClass::KRPMakePath(char const*, char const*, char const*)"},  // what is refused
         [](Host& host, Answer& answer) {
             static const std::string tooLong(5000, 'x');
             host.env.KRPSplitPath(tooLong.c_str(), nullptr, nullptr, nullptr);
             answer << host.env.KRPMakePath(nullptr, "x", "") << host.env.KRPMakePath(tooLong.c_str(), "x", "")
                    << host.env.KRPAdjustPathLen("a/path", host.out, -1)
                    << host.env.KRPPathFileExist(tooLong.c_str(), "x");
             KRPRemoveAllDirectories(nullptr);
         }},
    };
}

// --- host facts -----------------------------------------------------------------------------------------------------

Operations hostOperations() {
    const Answers kNotStarted = {"thrown: popen() failed!"};
    return {
        {{"exec[abi:cxx11](char const*)"},
         [](Host&, Answer& answer) { answer << exec("getconf LONG_BIT"); },
         {{"popen", kNotStarted}, {"fgets EIO", sameOr("")}}},
        {{"KRPGetMachineName()"},
         [](Host&, Answer& answer) { answer << KRPGetMachineName(); },
         {{"gethostbyname", {"host"}}}},
        {{"KRPGetCPUInfo()"},
         [](Host&, Answer& answer) { answer << KRPGetCPUInfo(); },
         {{"popen", kNotStarted}, {"fgets EIO", {kSame, "thrown: basic_string::substr*"}}},
         {},
         {kSame, " processor with a name of some length", "thrown: basic_string::substr*"}},
        {{"KRPIs64BitEnv()"},
         [](Host&, Answer& answer) { answer << KRPIs64BitEnv(); },
         {{"popen", kNotStarted}, {"fgets EIO", sameOr("false")}}},
        {{"KRPGetIPAddress()"},
         [](Host&, Answer& answer) { answer << KRPGetIPAddress(); },
         {{"getifaddrs", {""}}, {"inet_ntop", {"IP4:*"}}},
         {},
         {"*IP4: 10.1.2.3 IP4: 10.1.2.3 "}},  // it appends to what the calls before it have found
        {{"KRPGetOSInfo()"}, [](Host&, Answer& answer) { answer << KRPGetOSInfo(); }, {{"uname", {"Linux ( )"}}}},
        {{"IsNT()", "GetProcessHandle()", "KRPGetWorkingSetSize()"},
         [](Host&, Answer& answer) { answer << IsNT() << GetProcessHandle() << KRPGetWorkingSetSize(); }},
    };
}

// --- directory walk and statistics ----------------------------------------------------------------------------------

struct Gathering : CFindFileFunctor {
    explicit Gathering(Answer* answer) : answer_(answer) {}
    bool operator()(const char* path) override {
        *answer_ << path;
        return true;
    }
    Answer* answer_;
};

void tell(const KREnvMachineStats& stats, Answer& answer) {
    answer << static_cast<long double>(stats.physicalMemoryBytes) << stats.cpuLoadPercent;
    for (const KREnvSlaveStats& engine : stats.slaves)
        answer << engine.processId << static_cast<long double>(engine.memoryBytes) << engine.cpuPercent;
}

Operations statisticsOperations() {
    return {
        {{"FindFile(char const*, char const*, bool, CFindFileFunctor*)"},
         [](Host&, Answer& answer) {
             Gathering gathering(&answer);
             answer << FindFile("tree", "", true, &gathering);
         },
         {{"opendir", {kSame, "tree*true", "true"}}, {"readdir", {kSame, "tree*true", "true"}}},
         {},
         {kSame},
         2},  // one for each directory entered
        {{"get_usage(int, pstat*)"},
         [](Host&, Answer& answer) {
             pstat sample{};
             answer << get_usage(77, &sample) << static_cast<long double>(sample.user_ticks)
                    << static_cast<long double>(sample.cpu_total_ticks);
         },
         {{"fopen", {kSame, "-1 0.000000 0.000000"}},
          {"fscanf EIO", {"-1 0.000000 0.000000", "-1 12.000000 0.000000"}},
          {"fscanf no match", {"0 0.000000 *", "0 12.000000 0.000000"}}},
         {},
         {kSame},
         1},  // the process's file, when there is no /proc/stat
        {{"calc_cpu(pstat const*, pstat const*)"},
         [](Host&, Answer& answer) {
             const pstat sample{};
             answer << calc_cpu(&sample, nullptr);
         }},
        {{"getProcessRSS(int, bool)"},
         [](Host&, Answer& answer) { answer << getProcessRSS(77, false); },
         {{"fopen", sameOr("0")}, {"fscanf", {"0"}}}},
        {{"getSlavesList(std::vector<int, std::allocator<int> >&, int)"},
         [](Host&, Answer& answer) {
             std::vector<int> pids;
             answer << getSlavesList(pids, 0) << static_cast<int>(pids.size());
         },
         {{"opendir", {"0 0"}},
          {"readdir", {kSame, "1 1", "1 0"}},
          {"fopen", {"1 1", "1 0"}},
          {"fscanf", {"1 1", "1 0"}}}},
        {{"IsNumeric(char const*)", "GetProcessID()"},
         [](Host&, Answer& answer) {
             answer << IsNumeric(nullptr) << IsNumeric("12") << (GetProcessID() == getpid());
         }},
        {{"CPUUsage::CPUUsage(int)", "CPUUsage::~CPUUsage()", "CPUUsage::EnoughTimePassed()"},
         [](Host&, Answer& answer) {
             CPUUsage sampler(77);
             answer << sampler.EnoughTimePassed();
         },
         {{"clock_gettime", {"false"}}}},
        {{"CPUUsage::GetUsage()"},
         [](Host& host, Answer& answer) { answer << host.sampler().GetUsage(); },
         {{"fopen", sameOr("-1.000000")}, {"fscanf EIO", {"-1.000000"}}, {"clock_gettime", sameOr("-1.000000")}},
         {},
         {kSame, "nan", "inf", "4.791667"},  // nothing moves in this /proc, but for what a scan had missed
         1},
        {{"MachineStats::MachineStats()", "MachineStats::~MachineStats()", "MachineStats::EnoughTimePassed()"},
         [](Host&, Answer& answer) {
             MachineStats collector;
             answer << collector.EnoughTimePassed();
         },
         {{"clock_gettime", sameOr("false")}}},
        {{"MachineStats::CollectMachineStats(KREnvMachineStats&, bool)"},
         [](Host& host, Answer& answer) {
             answer << host.collector().CollectMachineStats(host.stats, false);
             tell(host.stats, answer);
         },
         {{"new", {kSame, "true 4096000.000000 *"}},
          {"fopen", {kSame, "true 4096000.000000 *"}},
          {"fscanf", {kSame, "true 4096000.000000 *"}},
          {"opendir", {"true 4096000.000000 nan"}},
          {"readdir", {kSame, "true 4096000.000000 *"}},
          {"sysinfo", {"true 0.000000 *"}},
          {"clock_gettime", {kSame, "true 4096000.000000 *"}}},
         {},
         {"true 4096000.000000 * 77 1638400.000000 * 78 1638400.000000 *"}},
        {{"MachineStats::CollectSlavesInfo(std::vector<KREnvSlaveStats, std::allocator<KREnvSlaveStats> >&, bool)"},
         [](Host& host, Answer& answer) {
             answer << host.collector().CollectSlavesInfo(host.stats.slaves, false)
                    << static_cast<int>(host.stats.slaves.size());
         },
         {{"new", {kSame, "false ?"}},
          {"opendir", {"true 0"}},
          {"readdir", {kSame, "true ?"}},
          {"fopen", {kSame, "true ?"}},
          {"fscanf", {kSame, "true ?"}}}},
        {{"MachineStats::GetSpecificProcessInfo(int, unsigned long long&, double&, bool)"},
         [](Host& host, Answer& answer) {
             unsigned long long memory = 0;
             double cpu = 0.0;
             answer << host.collector().GetSpecificProcessInfo(77, memory, cpu, false)
                    << static_cast<long double>(memory) << cpu;
         },
         {{"fopen", sameOr("true 0.000000 0.000000")}, {"fscanf", {"true 0.000000 0.000000"}}}},
        {{"MachineStats::getBasicMachineStats(unsigned long long&, unsigned long long&, unsigned long long&, unsigned "
          "long long&, unsigned long long&, long double&, int&)"},
         [](Host& host, Answer& answer) {
             KREnvMachineStats& stats = host.stats;
             answer << host.collector().getBasicMachineStats(
                 stats.reservedValue, stats.physicalMemoryBytes, stats.totalMemoryBytes, stats.totalSwapBytes,
                 stats.freeMemoryBytes, stats.cpuLoadPercent, stats.processId);
             tell(stats, answer);
         },
         {{"fopen", sameOr("true 4096000.000000 0.000000")},
          {"sysinfo", {"true 0.000000 nan"}},
          {"clock_gettime", sameOr("true 4096000.000000 0.000000")}}},
        {{"MachineStats::GetCPULoad()"},
         [](Host& host, Answer& answer) { answer << host.collector().GetCPULoad(); },
         {{"fopen", sameOr("-1.000000")}, {"clock_gettime", sameOr("-1.000000")}}},
        {{"MachineStats::GetProcessMemCPU(float&, unsigned long&, unsigned long&)", "MachineStats::GetConsolesCount()"},
         [](Host& host, Answer& answer) {
             float first = 1;
             unsigned long second = 1, third = 1;
             answer << host.collector().GetProcessMemCPU(first, second, third) << host.collector().GetConsolesCount();
         }},
        {{"get_usage(int, pstat*)", "calc_cpu(pstat const*, pstat const*)"},  // what is refused
         [](Host&, Answer& answer) {
             const pstat sample{};
             answer << get_usage(77, nullptr) << calc_cpu(nullptr, &sample) << getProcessRSS(-1, false);
         }},
    };
}

// --- facilities -----------------------------------------------------------------------------------------------------

struct Thing {
    std::string text = "an object with a block of its own";
};

Operations facilityOperations() {
    const char* const kLoadFailed = "0 old null KR_VERSION";
    return {
        {{"KRSCreateTable()", "KRSDestroyTable(int)"},
         [](Host&, Answer& answer) {
             const int handle = KRSCreateTable();
             answer << (handle > 0);
             KRSDestroyTable(handle);
         },
         {{"new", {"false"}}}},
        {{"KRSLoad(char const*, int, char const* (*)(char const*, char const*))", "KRSGetValue(int, char const*)",
          "KRSEntryCount(int)", "KRSGetEntry(int, unsigned int, KRSEntry*)"},
         [](Host& host, Answer& answer) {
             KRSEntry entry{};
             answer << KRSLoad("bin/product.ini", host.handle, nullptr) << KRSGetValue(host.handle, "OLD")
                    << KRSGetValue(host.handle, "BMP_X_SIZE");
             static_cast<void>(KRSEntryCount(host.handle) > 0 && KRSGetEntry(host.handle, 0, &entry));
             answer << entry.key;
         },
         {{"new", {kLoadFailed}}, {"open", {kLoadFailed}}, {"fstat", {kLoadFailed}}, {"read EIO", {kLoadFailed}}},
         [](Host& host) -> const char* {
             host.handle = KRSCreateTable();
             KRSLoad("bin/pressmark.ini", host.handle, nullptr);
             return nullptr;
         }},
        {{"KRSLoadError()"},
         [](Host& host, Answer& answer) {
             answer << KRSLoad("bin/broken.ini", host.handle, nullptr) << KRSLoadError();
         },
         {{"new", {"0 bin/broken.ini: not enough memory", "0 out of memory"}},
          {"open", {"0 bin/broken.ini: cannot open the file: Too many open files"}},
          {"fstat", {"0 bin/broken.ini: cannot examine the file: Input/output error"}},
          {"read EIO", {"0 bin/broken.ini: cannot read the file: Input/output error"}}},
         [](Host& host) -> const char* {
             host.handle = KRSCreateTable();
             return nullptr;
         }},
        {{"KRSReadLines(char const*, std::function<void (KRSLine const&)> const&)"},
         [](Host&, Answer& answer) {
             const KRSLineVisitor visitor = [&](const KRSLine& line) { answer << line.key << line.error; };
             answer << KRSReadLines("bin/broken.ini", visitor);
         },
         {{"new", {kSame, "0", kNoMemory}}, {"open", {"0"}}, {"fstat", {"0"}}, {"read EIO", {"0"}}}},
        {{"RWCRegexp::RWCRegexp(char const*)",
          "RWCRegexp::search(char const*, unsigned int, unsigned int*, unsigned int) const"},
         [](Host&, Answer& answer) {
             std::size_t matched = 0;
             answer << static_cast<int>(RWCRegexp("[ab]+").search("xxab", 4, &matched)) << static_cast<int>(matched);
         }},
        {{"nCommandLineArguments::gSet(int, char const* const*)", "nCommandLineArguments::gCount()"},
         [](Host&, Answer& answer) {
             const char* const arguments[] = {"program", "an argument that needs a block of its own"};
             nCommandLineArguments::gSet(2, arguments);
             answer << nCommandLineArguments::gCount() << nCommandLineArguments::gGet(1);
         },
         {{"new", {kNoMemory, "2 std::bad_alloc"}}}},
        {{"nCommandLineArguments::gGet[abi:cxx11](int)"},
         [](Host&, Answer& answer) {
             answer << (nCommandLineArguments::gGet(0).find('/') == 0 ? "a path" : "no path");
         },
         {{"readlink", {"no path"}}}},
        {{"n_debug::nExecutableDirectory::gGet[abi:cxx11]()",
          "n_debug::nExecutableDirectory::gInitialize(std::__cxx11::basic_string<char, std::char_traits<char>, "
          "std::allocator<char> >)"},
         [](Host&, Answer& answer) {
             n_debug::nExecutableDirectory::gInitialize("/a/directory/that/needs/a/block/of/its/own");
             answer << n_debug::nExecutableDirectory::gGet();
         }},
        {{"nRealtime::gCurrentRaw_compiler()"},
         [](Host&, Answer& answer) { answer << (nRealtime::gCurrentRaw_compiler() > 0); }},
        {{"nLogging::RecordWriter::RecordWriter(nLogging::Level, char const*, char const*, int)",
          "nLogging::RecordWriter::~RecordWriter()", "nLogging::gIsEnabled(nLogging::Level)",
          "nLogging::gLevelName(nLogging::Level)"},
         [](Host&, Answer& answer) {
             errno = EACCES;
             PM_LOG_RECORD(nLogging::Level::Error, "Category", "file", 1)
                 << "a text\n with\r many\t control\\ characters\x01";
             answer << (errno == EACCES ? "errno kept" : "errno changed");
         }},
        {{"nLogging::gSetSink(std::function<void (nLogging::Record const&)>)",
          "nLogging::gEnable(nLogging::Level, bool)"},
         [](Host&, Answer& answer) {
             int records = 0;
             nLogging::gEnable(nLogging::Level::Error, true);
             nLogging::gSetSink([&records](const nLogging::Record&) { ++records; });
             PM_LOG_RECORD(nLogging::Level::Error, "Category", "file", 1) << "a text that needs a block of its own";
             nLogging::gSetSink({});
             answer << records;
         },
         {{"new", sameOrNoMemoryOr("0")}}},  // the record is lost
        {{"nLifetime::MainScope::MainScope(int, char const* const*)", "nLifetime::MainScope::~MainScope()"},
         [](Host& host, Answer& answer) {
             const char* const arguments[] = {"bin/program"};
             const nLifetime::MainScope scope(1, arguments);
             answer << host.env.KREGetEnv("KR_BUILD");
         },
         {{"new", sameOrNoMemoryOr("null")},
          {"realpath", {"null"}},
          {"stat", sameOr("null")},
          {"open", {"null"}},
          {"fstat", {"null"}},
          {"read EIO", {"null"}}}},
        {{"nLifetime::Registration::Registration(void* (*)(), void (*)(void*))",
          "nLifetime::Registration::~Registration()", "nLifetime::Registration::construct()",
          "nLifetime::Registration::destroy()"},
         [](Host&, Answer& answer) {
             const nLifetime::StaticObject<Thing> thing;
             static_cast<void>(thing);
             answer << "registered";
         },
         {},
         [](Host&) -> const char* {
             static const char* const arguments[] = {"nowhere/program"};
             static const nLifetime::MainScope scope(1, arguments);
             static_cast<void>(scope);
             return nullptr;
         }},
        {{"nLogging::gIsEnabled(nLogging::Level)"},  // a log whose settings make no sense
         [](Host&, Answer& answer) {
             answer << nLogging::gIsEnabled(nLogging::Level::Trace) << nLogging::gIsEnabled(nLogging::Level::Error);
         },
         {{"getenv", {"* true"}}},
         [](Host&) -> const char* {
             setenv("PM_LOG", "Nonsense of some length, Error, and more nonsense", 1);
             setenv("PM_LOG_FILE", "/there/is/no/such/directory/for/a/log\\file", 1);
             return nullptr;
         }},
        {{"KRSReadLines(char const*, std::function<void (KRSLine const&)> const&)"},
         [](Host&, Answer& answer) {
             const KRSLineVisitor visitor = [](const KRSLine&) { throw std::runtime_error("enough"); };
             answer << KRSReadLines("bin/broken.ini", visitor);
         },
         {{"new", {"thrown: enough", "0", kNoMemory}}, {"open", {"0"}}, {"fstat", {"0"}}, {"read EIO", {"0"}}},
         {},
         {"thrown: enough"}},
        {{"KRSLoad(char const*, int, char const* (*)(char const*, char const*))"},  // with a filter that throws
         [](Host& host, Answer& answer) {
             const auto filter = [](const char*, const char*) -> const char* { throw std::runtime_error("enough"); };
             answer << KRSLoad("bin/product.ini", host.handle, filter);
         },
         {{"new", {"thrown: enough", "0", kNoMemory}}, {"open", {"0"}}, {"fstat", {"0"}}, {"read EIO", {"0"}}},
         [](Host& host) -> const char* {
             host.handle = KRSCreateTable();
             return nullptr;
         },
         {"thrown: enough"}},
        {{"nLogging::RecordWriter::~RecordWriter()"},  // in a header of the facilities
         [](Host&, Answer& answer) {
             OptionalValue<std::string> value;
             value.set("a text that needs a block of its own");
             value.set("another one, which replaces it");
             answer << value.get();
         }},
    };
}

Operations allOperations() {
    Operations all;
    for (const auto& operations :
         {settingsOperations(), pathOperations(), hostOperations(), statisticsOperations(), facilityOperations()})
        all.insert(all.end(), operations.begin(), operations.end());
    return all;
}

// --- the sweeps -----------------------------------------------------------------------------------------------------

int injectAll(const Operations& operations, SweepResult (*run)(const Operation&) = &sweep) {
    int injected = 0;
    for (const Operation& operation : operations) {
        const SweepResult result = run(operation);
        for (const std::string& problem : result.problems) ADD_FAILURE() << problem;
        injected += result.injected;
    }
    std::cout << injected << " faults injected into " << operations.size() << " operations\n";
    return injected;
}

// "T KREInit(char const*)" -> "KREInit(char const*)", for each line.
std::set<std::string> symbolsIn(const char* list) {
    std::set<std::string> symbols;
    std::ifstream file(list);
    for (std::string line; std::getline(file, line);) symbols.insert(line.substr(2));
    return symbols;
}

}  // namespace

// Each of these sweeps has its floor: one that injects less has stopped looking.
TEST(Faults, SettingsSurvive) { EXPECT_GE(injectAll(settingsOperations()), 865); }
TEST(Faults, PathsSurvive) { EXPECT_GE(injectAll(pathOperations()), 373); }
TEST(Faults, HostFactsSurvive) { EXPECT_GE(injectAll(hostOperations()), 48); }
TEST(Faults, StatisticsSurvive) { EXPECT_GE(injectAll(statisticsOperations()), 549); }
TEST(Faults, FacilitiesSurvive) { EXPECT_GE(injectAll(facilityOperations()), 782); }

TEST(Faults, AHostWithoutALogGetsTheSameAnswers) { EXPECT_GE(injectAll(allOperations(), &sweepWithoutLog), 280); }

TEST(Faults, EveryExportHasACase) {
    std::set<std::string> shown;
    for (const Operation& operation : allOperations()) shown.insert(operation.shows.begin(), operation.shows.end());
    std::set<std::string> exported = symbolsIn(KRENV_EXPORTS);
    exported.merge(symbolsIn(KRFACILITIES_EXPORTS));
    EXPECT_EQ(exported, shown);
}

// --- what the sweeps have found -------------------------------------------------------------------------------------

namespace {

const Fault kNoMemoryFault = {"new", "ENOMEM", ENOMEM, true};

// What `run` answers in a process of its own while its first allocation, and with `lasting` every one, fails.
std::string withoutMemory(bool lasting, const Run& run) {
    return inHost([&] {
        Host host;
        Answer answer;
        const UnderTest scope;
        const Injection injection(kNoMemoryFault, 1, lasting);
        run(host, answer);
        const Undisturbed own;
        return answer.text();
    });
}

}  // namespace

// The pattern was compiled outside of what turned missing memory into a failed expansion.
TEST(FaultsFound, TheFirstExpansionOfAProcessWithoutMemoryIsNull) {
    const auto expand = [](Host& host, Answer& answer) { answer << host.env.KRERuntimeResolve("no reference"); };
    EXPECT_EQ("null", withoutMemory(false, expand));
}

// The text that was to tell of it threw std::bad_alloc out of the load.
TEST(FaultsFound, ALoadWithoutAnyMemoryFailsWithAShortText) {
    const auto load = [](Host&, Answer& answer) {
        answer << KRSLoad("/there/is/no/file/of/this/name", 1, nullptr) << KRSLoadError();
    };
    EXPECT_EQ("0 out of memory", withoutMemory(true, load));
}

// What composing the text did to errno was kept instead of what stood there before.
TEST(FaultsFound, ARecordWithoutMemoryLeavesErrno) {
    const auto log = [](Host&, Answer& answer) {
        errno = EACCES;
        PM_LOG_RECORD(nLogging::Level::Error, "Category", "file", 1) << "a text that needs a block of its own";
        answer << (errno == EACCES ? "errno kept" : "errno changed");
    };
    EXPECT_EQ("errno kept", withoutMemory(true, log));
}
