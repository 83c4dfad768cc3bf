// Finding and loading pressmark.ini: by a call, and by itself as the host's main scope opens.
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ExecutableDirectory.h"
#include "krenv.h"
#include "krenvState.h"
#include "krs.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"

namespace {

// The file that is removed right after stat has seen it, "" for none.
std::string removedOnceSeen;

int statAndRemove(const char* path, int result) {
    if (result == 0 && removedOnceSeen == path) {
        unlink(path);
        removedOnceSeen.clear();
    }
    return result;
}

}  // namespace

// stat, with 64-bit offsets and times, as the C library names it
#ifdef __i386__
#define REAL_STAT __real___stat64_time64
#define WRAP_STAT __wrap___stat64_time64
#else
#define REAL_STAT __real_stat64
#define WRAP_STAT __wrap_stat64
#endif

extern "C" {
int REAL_STAT(const char* path, void* status);
int WRAP_STAT(const char* path, void* status) { return statAndRemove(path, REAL_STAT(path, status)); }
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// --- KREInit --------------------------------------------------------------------------------------------------------

// Three places, of which the process environment names two; no init file anywhere.
class KREInitTest : public testing::Test {
protected:
    KREInitTest() { IniTable = 0; }
    ~KREInitTest() override { IniTable = 0; }

    // The Error records' texts.
    std::vector<std::string> errors() const { return log.texts(nLogging::Level::Error); }
    std::size_t reports() const { return log.texts(nLogging::Level::Execution).size(); }

    TempDir given, bin, home;
    ScopedEnv krBin{"KR_BIN", bin.path().c_str()};
    ScopedEnv homeVariable{"HOME", home.path().c_str()};
    LogCapture log;
    KREnvContainerClass env;
};

TEST_F(KREInitTest, LoadsTheFileOfTheGivenDirectoryFirst) {
    given.writeFile("pressmark.ini", "WHERE = given\n");
    bin.writeFile("pressmark.ini", "WHERE = bin\n");
    home.writeFile("pressmark.ini", "WHERE = home\n");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_STREQ("given", env.KREGetEnv("WHERE"));
}

TEST_F(KREInitTest, LoadsTheFileOfKrBinSecond) {
    bin.writeFile("pressmark.ini", "WHERE = bin\n");
    home.writeFile("pressmark.ini", "WHERE = home\n");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_STREQ("bin", env.KREGetEnv("WHERE"));
}

TEST_F(KREInitTest, LoadsTheFileOfHomeThird) {
    home.writeFile("pressmark.ini", "WHERE = home\n");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_STREQ("home", env.KREGetEnv("WHERE"));
}

TEST_F(KREInitTest, SearchesOnWhereKrBinIsUnset) {
    const ScopedEnv unset("KR_BIN", nullptr);
    home.writeFile("pressmark.ini", "WHERE = home\n");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
}

TEST_F(KREInitTest, TakesKrBinAsAList) {
    const ScopedEnv list("KR_BIN", ("/nonexistent:" + bin.path()).c_str());
    bin.writeFile("pressmark.ini", "WHERE = bin\n");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_STREQ("bin", env.KREGetEnv("WHERE"));
}

TEST_F(KREInitTest, WritesATraceRecordFirstAndTheReportLast) {
    given.writeFile("pressmark.ini", "");
    ASSERT_EQ(1, KREInit(given.path().c_str()));
    const auto entries = log.entries();
    EXPECT_EQ(nLogging::Level::Trace, entries.front().level);
    EXPECT_EQ("KREInit", entries.front().text);
    EXPECT_EQ("PMEnvironment", entries.front().category);
    EXPECT_EQ("../src/krenvf", entries.front().file);
    EXPECT_EQ(nLogging::Level::Execution, entries.back().level);
    EXPECT_EQ(11U, reports());
}

TEST_F(KREInitTest, RegistersTheDirectoryAlsoWhenNothingIsFound) {
    EXPECT_EQ(0, KREInit(given.path().c_str()));
    EXPECT_EQ(given.path(), n_debug::nExecutableDirectory::gGet());
}

TEST_F(KREInitTest, ExpandsBraceReferencesAtLoadAgainstTheTableBeingLoaded) {
    given.writeFile("pressmark.ini", "BASE = /opt\nLIB = #{BASE}/lib $(HOME)\n");
    ASSERT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_STREQ("/opt/lib $(HOME)", KRSGetValue(IniTable, "LIB"));
    EXPECT_EQ("/opt/lib " + home.path(), env.KREGetEnv("LIB"));
}

TEST_F(KREInitTest, AMissingFileIsOneErrorAndLeavesTheTableInUse) {
    given.writeFile("pressmark.ini", "A = 1\n");
    ASSERT_EQ(1, KREInit(given.path().c_str()));
    const int loaded = IniTable;
    log.clear();

    EXPECT_EQ(0, KREInit("/nonexistent"));
    EXPECT_THAT(errors(), ElementsAre("PMEnvironment: pressmark.ini not found"));
    EXPECT_EQ(2U, log.entries().size()) << "with the trace record";
    EXPECT_EQ(loaded, IniTable);
    EXPECT_STREQ("1", env.KREGetEnv("A"));
}

TEST_F(KREInitTest, ARejectedFileIsOneErrorThatNamesIt) {
    const std::string path = given.writeFile("pressmark.ini", "A = 1\nno assignment\n");
    EXPECT_EQ(0, KREInit(given.path().c_str()));
    EXPECT_THAT(errors(), ElementsAre("Failed to load. The file contains a syntax error " + path));
    EXPECT_EQ(0U, reports());
    EXPECT_EQ(path + ":2:1: missing '=', expected KEY = value", std::string(KRSLoadError()));
}

TEST_F(KREInitTest, ARejectedFileLeavesTheReleasedHandle) {
    given.writeFile("pressmark.ini", "A = 1\n");
    ASSERT_EQ(1, KREInit(given.path().c_str()));
    const int loaded = IniTable;
    given.writeFile("pressmark.ini", "no assignment\n");
    EXPECT_EQ(0, KREInit(given.path().c_str()));
    EXPECT_NE(0, IniTable);
    EXPECT_NE(loaded, IniTable);
    EXPECT_EQ(nullptr, env.KREGetEnv("A")) << "a released table has no values";
    EXPECT_STREQ("1", KRSGetValue(loaded, "A")) << "the earlier table is not released";
}

TEST_F(KREInitTest, ASecondSuccessReplacesTheTableAndReportsAgain) {
    given.writeFile("pressmark.ini", "A = 1\n");
    ASSERT_EQ(1, KREInit(given.path().c_str()));
    const int first = IniTable;
    given.writeFile("pressmark.ini", "A = 2\n");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_NE(first, IniTable);
    EXPECT_STREQ("2", env.KREGetEnv("A"));
    EXPECT_STREQ("1", KRSGetValue(first, "A")) << "texts of the first table may still be in use";
    EXPECT_EQ(22U, reports());
}

TEST_F(KREInitTest, AnEmptyDirectoryFindsNothing) {
    home.writeFile("pressmark.ini", "A = 1\n");
    EXPECT_EQ(0, KREInit(""));
    EXPECT_THAT(errors(), ElementsAre("PMEnvironment: pressmark.ini not found"));
}

TEST_F(KREInitTest, ANullDirectoryIsOneEmptyErrorAndALogicError) {
    n_debug::nExecutableDirectory::gInitialize("before");
    home.writeFile("pressmark.ini", "A = 1\n");
    EXPECT_THROW(KREInit(nullptr), std::logic_error);
    EXPECT_THAT(errors(), ElementsAre(""));
    EXPECT_EQ(2U, log.entries().size());
    EXPECT_EQ("before", n_debug::nExecutableDirectory::gGet());
    EXPECT_EQ(0, IniTable);
}

TEST_F(KREInitTest, AValueThatGoesRoundInACircleIsLeftOut) {
    const ScopedEnv loop("KRENV_TEST_LOOP", "${KRENV_TEST_LOOP}");
    given.writeFile("pressmark.ini", "A = ${KRENV_TEST_LOOP}\nB = 2\n");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_THAT(errors(), ElementsAre("\n endless loop while resolving value "));
    EXPECT_EQ(nullptr, env.KREGetEnv("A"));
    EXPECT_STREQ("2", env.KREGetEnv("B"));
}

TEST_F(KREInitTest, ADirectoryOfThatNameIsFoundAndRejected) {
    given.makeDirectory("pressmark.ini");
    EXPECT_EQ(0, KREInit(given.path().c_str()));
    EXPECT_THAT(errors(), ElementsAre("Failed to load. The file contains a syntax error " + given / "pressmark.ini"));
    EXPECT_THAT(KRSLoadError(), HasSubstr("this is a directory"));
}

TEST_F(KREInitTest, ADanglingLinkIsNotFound) {
    ASSERT_EQ(0, symlink("/nonexistent/file", (given / "pressmark.ini").c_str()));
    EXPECT_EQ(0, KREInit(given.path().c_str()));
    EXPECT_THAT(errors(), ElementsAre("PMEnvironment: pressmark.ini not found"));
}

TEST_F(KREInitTest, APipeOfThatNameDoesNotBlock) {
    ASSERT_EQ(0, mkfifo((given / "pressmark.ini").c_str(), 0600));
    EXPECT_EQ(0, KREInit(given.path().c_str()));
    EXPECT_THAT(errors(), ElementsAre(StartsWith("Failed to load. ")));
}

TEST_F(KREInitTest, AFileThatVanishesBetweenFindingAndLoadingIsRejected) {
    const std::string path = given.writeFile("pressmark.ini", "");
    removedOnceSeen = path;
    EXPECT_EQ(0, KREInit(given.path().c_str()));
    EXPECT_EQ("", removedOnceSeen);
    EXPECT_THAT(errors(), ElementsAre("Failed to load. The file contains a syntax error " + path));
    EXPECT_EQ(path + ": cannot open the file: No such file or directory", std::string(KRSLoadError()));
}

TEST_F(KREInitTest, OfAFileThatIsRefusedNoTableStays) {
    const std::string good = given.writeFile("good.ini", "A = 1\n"), bad = given.writeFile("bad.ini", "A = 1\n[\n");
    ASSERT_EQ(1, KRELoadIniFile(good.c_str()));
    const int before = IniTable;
    EXPECT_EQ(0, KRELoadIniFile(bad.c_str()));
    EXPECT_NE(before, IniTable);
    EXPECT_EQ(nullptr, env.KREGetEnv("A"));
    EXPECT_EQ(0, KRSLoad(good.c_str(), IniTable, nullptr)) << "the table is released";
    EXPECT_STREQ("1", KRSGetValue(before, "A")) << "the earlier one stays";
}

TEST_F(KREInitTest, AnEmptyFileIsLoaded) {
    given.writeFile("pressmark.ini", "");
    EXPECT_EQ(1, KREInit(given.path().c_str()));
    EXPECT_NE(0, IniTable);
}

// --- KRELoadIniFile -------------------------------------------------------------------------------------------------

TEST_F(KREInitTest, LoadIniFileLoadsTheNamedFileAndWritesNoReport) {
    const std::string path = given.writeFile("other.ini", "BASE = b\nA = #{BASE}#(BASE)\n");
    EXPECT_EQ(1, KRELoadIniFile(path.c_str()));
    EXPECT_STREQ("bb", env.KREGetEnv("A"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KREInitTest, LoadIniFileRefusesNull) {
    EXPECT_EQ(0, KRELoadIniFile(nullptr));
    EXPECT_THAT(errors(), ElementsAre(""));
    EXPECT_EQ(0, IniTable);
}

// --- the load-time start, seen from outside -------------------------------------------------------------------------

// A copy of the smallest host in a directory of its own. It prints KEY = value and its records on standard error.
class LoadTimeStart : public testing::Test {
protected:
    LoadTimeStart() { std::filesystem::copy_file(INIT_HOST, dir / "host"); }

    // Runs a shell command line with nothing set that names an init file.
    ProgramResult shell(const std::string& command, const char* krBin = nullptr) const {
        return runProgram({"/bin/sh", "-c", command},
                          {{"HOME", "/nonexistent"}, {"KR_BIN", krBin}, {"PM_LOG", "Error"}, {"PM_LOG_FILE", nullptr}});
    }

    TempDir dir, elsewhere;
};

constexpr char kFailure[] = " failed KREInit()\n";

TEST_F(LoadTimeStart, LoadsTheFileBesideTheProgram) {
    dir.writeFile("pressmark.ini", "KEY = beside\n");
    const ProgramResult result = shell("cd / && " + dir / "host");
    EXPECT_EQ("KEY = beside\n", result.out);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(0, result.status);
}

TEST_F(LoadTimeStart, LoadsItWhenStartedByARelativePath) {
    dir.writeFile("pressmark.ini", "KEY = beside\n");
    EXPECT_EQ("KEY = beside\n", shell("cd " + dir.path() + " && ./host").out);
    EXPECT_EQ("KEY = beside\n", shell("cd " + dir.path() + " && ../$(basename " + dir.path() + ")/host").out);
}

TEST_F(LoadTimeStart, LoadsItWhenStartedThroughPath) {
    dir.writeFile("pressmark.ini", "KEY = beside\n");
    elsewhere.writeFile("host", "a file of that name in the working directory");
    EXPECT_EQ("KEY = beside\n", shell("cd " + elsewhere.path() + " && PATH=" + dir.path() + ":$PATH && host").out);
}

TEST_F(LoadTimeStart, LoadsItWhenStartedThroughALink) {
    dir.writeFile("pressmark.ini", "KEY = beside\n");
    elsewhere.writeFile("pressmark.ini", "KEY = beside the link\n");
    ASSERT_EQ(0, symlink((dir / "host").c_str(), (elsewhere / "link").c_str()));
    EXPECT_EQ("KEY = beside\n", shell(elsewhere / "link").out);
}

TEST_F(LoadTimeStart, LoadsItWithAnEmptyProgramName) {
    dir.writeFile("pressmark.ini", "KEY = beside\n");
    EXPECT_EQ("KEY = beside\n", shell("exec " INIT_STARTER " '' " + dir / "host").out);
}

TEST_F(LoadTimeStart, FallsBackToKrBin) {
    elsewhere.writeFile("pressmark.ini", "KEY = bin\n");
    EXPECT_EQ("KEY = bin\n", shell(dir / "host", elsewhere.path().c_str()).out);
}

TEST_F(LoadTimeStart, LogsAFailureAndTheProgramGoesOn) {
    const ProgramResult result = shell(dir / "host");
    EXPECT_EQ("no KEY\n", result.out);
    EXPECT_THAT(result.err, HasSubstr(" PMEnvironment: pressmark.ini not found\n"));
    EXPECT_THAT(result.err, HasSubstr(kFailure));
    EXPECT_EQ(0, result.status);
}

TEST_F(LoadTimeStart, LogsARejectedFile) {
    const std::string path = dir.writeFile("pressmark.ini", "[unclosed\n");
    const ProgramResult result = shell(dir / "host");
    EXPECT_EQ("no KEY\n", result.out);
    EXPECT_THAT(result.err, HasSubstr("Failed to load. The file contains a syntax error " + path + "\n"));
    EXPECT_THAT(result.err, HasSubstr(kFailure));
}

TEST_F(LoadTimeStart, CopesWithAWorkingDirectoryThatIsGone) {
    const std::string gone = elsewhere.makeDirectory("gone");
    std::filesystem::copy_file(INIT_HOST, gone + "/host");
    const ProgramResult result =
        shell("cd " + gone + " && exec 3<host && rm -r " + gone + " && " INIT_STARTER " ./host /proc/self/fd/3");
    EXPECT_EQ("no KEY\n", result.out) << result.err;
    EXPECT_THAT(result.err, HasSubstr(kFailure));
    EXPECT_EQ(0, result.status);
}

TEST_F(LoadTimeStart, CopesWithAProgramNameThatIsNoFile) {
    dir.writeFile("pressmark.ini", "KEY = beside\n");
    const ProgramResult result = shell("exec " INIT_STARTER " /nonexistent/directory/name " + dir / "host");
    EXPECT_EQ("no KEY\n", result.out);
    EXPECT_THAT(result.err, HasSubstr(kFailure));
    EXPECT_EQ(0, result.status);
}

TEST_F(LoadTimeStart, CopesWithAVeryLongProgramName) {
    const ProgramResult result = shell("exec " INIT_STARTER " /$(head -c 9000 /dev/zero | tr '\\0' x) " + dir / "host");
    EXPECT_EQ("no KEY\n", result.out) << result.err;
    EXPECT_EQ(0, result.status);
}

}  // namespace
