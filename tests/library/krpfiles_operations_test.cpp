// The file-system operations: what they do, what they log, and which commands they give to the shell.
#include "krenv.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/LogCapture.h"
#include "support/LogExpectations.h"
#include "support/OpenDescriptors.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

using nLogging::Level;
using testing::ElementsAre;
using testing::IsEmpty;

// --- the C library's border -----------------------------------------------------------------------------------------

namespace {

/// What the shell is given while it lives. Commands are run unless an answer is set.
struct Shell {
    Shell() { current = this; }
    ~Shell() { current = nullptr; }
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    std::vector<std::string> commands;
    const int* answer = nullptr;

    static inline Shell* current = nullptr;
};

/// What tempnam is asked, and answers, while it lives.
struct TempNames {
    TempNames() { current = this; }
    ~TempNames() { current = nullptr; }
    TempNames(const TempNames&) = delete;
    TempNames& operator=(const TempNames&) = delete;

    std::string directory = "never asked";
    std::string prefix;
    std::string answer;  // empty: null

    static inline TempNames* current = nullptr;
};

bool refuseDirectories = false;

// The words of a command whose quoting leaves no doubt; nothing when a shell could make something else of it. Read from
// the text alone, as even asking a shell would carry out what a mistake lets through.
std::optional<std::vector<std::string>> plainWords(const std::string& text) {
    const std::string plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%=";
    std::vector<std::string> words(1);
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\'' || c == '"') {
            const std::size_t end = text.find(c, at + 1);
            if (end == std::string::npos) return std::nullopt;
            const std::string quoted = text.substr(at + 1, end - at - 1);
            if (c == '"' && quoted.find_first_of("$`\\") != std::string::npos) return std::nullopt;
            words.back() += quoted;
            at = end;
        } else if (c == '\\' && at + 1 < text.size() && text[at + 1] == '\'') {
            words.back() += text[++at];
        } else if (c == ' ') {
            words.emplace_back();
        } else if (plain.find(c) != std::string::npos) {
            words.back() += c;
        } else {
            return std::nullopt;
        }
    }
    return words;
}

bool isInTestDirectory(const std::string& path) {
    const std::string whole = (std::filesystem::current_path() / path).lexically_normal();
    return whole.rfind("/tmp/krenv-test-", 0) == 0;
}

// True when all that a command names lies in a directory of these tests. A mistake in the quoting under test must fail
// the test and not remove a home directory: that is what "rm -fr ~" does.
bool isSafeToRun(std::string command) {
    const std::string quiet = " > /dev/null";
    const std::size_t tail = command.rfind(quiet);
    if (tail != std::string::npos && tail + quiet.size() == command.size()) command.resize(tail);
    for (const std::string program : {"/bin/rm -fr ", "/bin/cp "}) {
        if (command.compare(0, program.size(), program) != 0) continue;
        const auto words = plainWords(command.substr(program.size()));
        return words && std::all_of(words->begin(), words->end(), isInTestDirectory);
    }
    return false;
}

}  // namespace

extern "C" {

int __real_system(const char* command);
int __wrap_system(const char* command);
char* __real_tempnam(const char* directory, const char* prefix);
char* __wrap_tempnam(const char* directory, const char* prefix);
DIR* __real_opendir(const char* path);
DIR* __wrap_opendir(const char* path);

int __wrap_system(const char* command) {
    if (Shell::current != nullptr) Shell::current->commands.push_back(command);
    if (Shell::current != nullptr && Shell::current->answer != nullptr) return *Shell::current->answer;
    const bool safe = isSafeToRun(command);
    EXPECT_TRUE(safe) << "not run: " << std::string(command).substr(0, 200);
    return safe ? __real_system(command) : -1;
}

char* __wrap_tempnam(const char* directory, const char* prefix) {
    if (TempNames::current == nullptr) return __real_tempnam(directory, prefix);
    TempNames::current->directory = directory != nullptr ? directory : "none";
    TempNames::current->prefix = prefix;
    return TempNames::current->answer.empty() ? nullptr : strdup(TempNames::current->answer.c_str());
}

DIR* __wrap_opendir(const char* path) { return refuseDirectories ? nullptr : __real_opendir(path); }
}

namespace {

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

mode_t modeOf(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

/// A file-creation mask for the length of a scope.
class ScopedUmask {
public:
    explicit ScopedUmask(mode_t mask) : before_(umask(mask)) {}
    ~ScopedUmask() { umask(before_); }
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;

private:
    mode_t before_;
};

// Names that a shell, or the options of a command, would take for something else.
const char* const kHostileNames[] = {
    " ",         "a b",         " lead",   "trail ",    "tab\there", "new\nline", "\n",      "\r",         "'",
    "''",        "it's",        "\"",      "say \"x\"", "$",         "$HOME",     "${HOME}", "$(touch x)", "`touch x`",
    "\\",        "back\\slash", "end\\",   "\\n",       ";",         "; touch x", "&",       "&& touch x", "|",
    "| touch x", "<",           ">",       "> x",       "(",         ")",         "(x)",     "#",          "#x",
    "a#",        "~",           "~root",   "*",         "?",         "[a-z]",     "{a,b}",   "!",          "!!",
    "^",         "=",           "A=b",     "%",         "-",         "--",        "-x",      "-rf",        "--help",
    "-t x",      "-$x",         "-'",      "...",       "\xc3\xa4",  "\xff",      "\x01",    "\x7f",       "\x81\x88",
    "\x83\\",    "$'x'",        "\"'$`\\", "@(x)",      "+",         "if",        "x=~",     "a:~b",
};

}  // namespace

// --- the guard of these tests ---------------------------------------------------------------------------------------

TEST(CommandGuard, LetsNothingOutOfTheTestDirectories) {
    const TempDir dir;
    const ScopedCwd cwd(dir.path());
    for (const char* const command : {"/bin/rm -fr x", "/bin/rm -fr 'a b'", "/bin/rm -fr ''\\'''", "/bin/rm -fr '~'",
                                      "/bin/cp \"a\" '$b' > /dev/null"}) {
        EXPECT_TRUE(isSafeToRun(command)) << command;
    }
    for (const char* const command :
         {"/bin/rm -fr ~", "/bin/rm -fr ~root", "/bin/rm -fr $HOME", "/bin/rm -fr \"$HOME\"", "/bin/rm -fr `pwd`",
          "/bin/rm -fr /", "/bin/rm -fr x /", "/bin/rm -fr ..", "/bin/rm -fr x/../..", "/bin/rm -fr *",
          "/bin/rm -fr 'x", "/bin/rm -fr x; y", "/bin/rm -fr x\ny", "/bin/cp \"a\" \"/etc/b\" > /dev/null",
          "/bin/cp \"a\" > b", "ls x", ""}) {
        EXPECT_FALSE(isSafeToRun(command)) << command;
    }
}

// --- KRPCreateDirectory ---------------------------------------------------------------------------------------------

TEST(KRPCreateDirectory, CreatesTheLastComponent) {
    const TempDir dir;
    const LogCapture log;
    EXPECT_TRUE(KRPCreateDirectory((dir / "new").c_str()));
    EXPECT_TRUE(std::filesystem::is_directory(dir / "new"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(KRPCreateDirectory, ModeIsTheProcessesMaskTakenFrom0777) {
    const TempDir dir;
    const struct {
        mode_t mask;
        mode_t mode;
    } rows[] = {{0, 0777}, {022, 0755}, {077, 0700}};
    for (const auto& row : rows) {
        const ScopedUmask umask(row.mask);
        const std::string path = dir / std::to_string(row.mask);
        EXPECT_TRUE(KRPCreateDirectory(path.c_str()));
        EXPECT_EQ(row.mode, modeOf(path));
    }
}

TEST(KRPCreateDirectory, WhateverIsThereAlreadyIsGoodEnough) {
    const TempDir dir;
    const LogCapture log;
    dir.writeFile("file", "content");
    std::filesystem::create_symlink("file", dir / "link");
    ASSERT_EQ(0, mkfifo((dir / "fifo").c_str(), 0600));
    for (const std::string& path : {dir.path(), dir / "file", dir / "link", dir / "fifo"}) {
        EXPECT_TRUE(KRPCreateDirectory(path.c_str())) << path;
    }
    EXPECT_EQ("content", readFileText(dir / "file"));
    EXPECT_THAT(namesIn(dir.path()), ElementsAre("fifo", "file", "link"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(KRPCreateDirectory, MissingParentFailsWithBothRecords) {
    const TempDir dir;
    const LogCapture log;
    const std::string path = dir / "a/b";
    EXPECT_FALSE(KRPCreateDirectory(path.c_str()));
    EXPECT_THAT(log.texts(Level::Error), ElementsAre("Failed to create dir. Error: 2:No such file or directory",
                                                     "Failed to create directory " + path));
    for (const auto& entry : log.entries()) {
        EXPECT_EQ("PMEnvironment", entry.category);
        EXPECT_EQ("../src/krpfiles", entry.file);
    }
    EXPECT_EQ(2u, log.entries().size());
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
}

TEST(KRPCreateDirectory, RecordsTellTheSystemsReason) {
    const TempDir dir;
    dir.writeFile("file");
    std::filesystem::create_symlink("nowhere", dir / "dangling");
    const struct {
        std::string path;
        const char* reason;
    } rows[] = {
        {"", "2:No such file or directory"},
        {dir / "dangling", "17:File exists"},
        {dir / "file/below", "20:Not a directory"},
        {dir / std::string(256, 'n'), "36:File name too long"},
        {dir / std::string(100'000, '/'), "36:File name too long"},
    };
    for (const auto& row : rows) {
        const LogCapture log;
        EXPECT_FALSE(KRPCreateDirectory(row.path.c_str()));
        EXPECT_THAT(log.texts(Level::Error), ElementsAre(std::string("Failed to create dir. Error: ") + row.reason,
                                                         "Failed to create directory " + row.path));
    }
}

TEST(KRPCreateDirectory, NullFailsLikeAnyOtherPathThatCannotBeCreated) {
    const LogCapture log;
    EXPECT_FALSE(KRPCreateDirectory(nullptr));
    EXPECT_THAT(log.records(), ElementsAre("Error: Failed to create dir. Error: 14:Bad address",
                                           "Error: Failed to create directory <NullChar*>"));
}

TEST(KRPCreateDirectory, NoRecordIsMadeWhileErrorsAreDisabled) {
    const TempDir dir;
    const LogCapture log;
    nLogging::gEnable(Level::Error, false);
    EXPECT_FALSE(KRPCreateDirectory((dir / "a/b").c_str()));
    EXPECT_THAT(log.entries(), IsEmpty());
}

// --- KRPRemoveAllDirectories ----------------------------------------------------------------------------------------

TEST(KRPRemoveAllDirectories, RemovesATreeAndNothingElse) {
    const TempDir dir;
    dir.makeDirectory("tree/a/b");
    dir.writeFile("tree/a/f");
    dir.writeFile("tree2");
    KRPRemoveAllDirectories((dir / "tree").c_str());
    EXPECT_THAT(namesIn(dir.path()), ElementsAre("tree2"));
}

TEST(KRPRemoveAllDirectories, RemovesAFileToo) {
    const TempDir dir;
    KRPRemoveAllDirectories(dir.writeFile("file").c_str());
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
}

TEST(KRPRemoveAllDirectories, OrdinaryPathsStandUnquotedInTheCommand) {
    const LogCapture quiet;
    Shell shell;
    const int done = 0;
    shell.answer = &done;
    for (const char* const path :
         {"/tmp/run7", "/tmp/a-b_c+d,e:f@g%h=i.tar.gz", "/tmp/A/../Z/./0/9/", "relative/tmp"}) {
        KRPRemoveAllDirectories(path);
        EXPECT_EQ(std::string("/bin/rm -fr ") + path, shell.commands.back());
    }
}

TEST(KRPRemoveAllDirectories, OtherPathsAreQuoted) {
    const LogCapture quiet;
    Shell shell;
    const int done = 0;
    shell.answer = &done;
    const struct {
        const char* path;
        const char* argument;
    } rows[] = {
        {"/tmp/a b", "'/tmp/a b'"},
        {"/tmp/a $b", "'/tmp/a $b'"},
        {"/tmp/*", "'/tmp/*'"},
        {"/tmp/it's", "'/tmp/it'\\''s'"},
        {"/tmp/\n", "'/tmp/\n'"},
        {"~/tmp", "'~/tmp'"},
        {"-x", "./-x"},
        {"-x y", "'./-x y'"},
        {"--", "./--"},
        {"/tmp/\xc3\xa4", "'/tmp/\xc3\xa4'"},
        {"'", "''\\'''"},
    };
    for (const auto& row : rows) {
        KRPRemoveAllDirectories(row.path);
        EXPECT_EQ(std::string("/bin/rm -fr ") + row.argument, shell.commands.back());
    }
}

TEST(KRPRemoveAllDirectories, HostileNamesMeanThatFileOnly) {
    const LogCapture quiet;
    for (const std::string name : kHostileNames) {
        const TempDir dir;
        const ScopedCwd cwd(dir.path());
        dir.writeFile("decoy");
        dir.writeFile("x");
        dir.writeFile(name);
        KRPRemoveAllDirectories(name.c_str());
        EXPECT_THAT(namesIn("."), ElementsAre("decoy", "x")) << testing::PrintToString(name);
    }
}

TEST(KRPRemoveAllDirectories, TraceTellsCommandAndStatus) {
    const struct {
        int status;
        const char* text;
    } rows[] = {{0, "0"}, {256, "256"}, {-1, "-1"}, {32512, "32512"}};
    for (const auto& row : rows) {
        const LogCapture log;
        Shell shell;
        shell.answer = &row.status;
        KRPRemoveAllDirectories("/tmp/a b");
        EXPECT_THAT(log.texts(Level::Trace),
                    ElementsAre("KRPRemoveAllDirectories before\t/tmp/a b\t/bin/rm -fr '/tmp/a b'\t",
                                "KRPRemoveAllDirectories after\t" + std::string(row.text) + "\t/tmp/a b\t"));
        ASSERT_EQ(2u, log.entries().size());
        for (const auto& entry : log.entries()) {
            EXPECT_EQ("PMEnvironment", entry.category);
            EXPECT_EQ("../src/krpfiles", entry.file);
        }
    }
}

TEST(KRPRemoveAllDirectories, RemovesAlsoWhileTraceIsDisabled) {
    const TempDir dir;
    const LogCapture log;
    nLogging::gEnable(Level::Trace, false);
    KRPRemoveAllDirectories(dir.writeFile("file").c_str());
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(KRPRemoveAllDirectories, PathWithoutTmpIsReportedAndRemovedAllTheSame) {
    const TempDir dir;
    const ScopedCwd cwd(dir.path());
    dir.makeDirectory("var/x/y");
    const LogCapture log;
    nLogging::gEnable(Level::Trace, false);
    KRPRemoveAllDirectories("var/x");
    expectBareErrors(log, 1);
    EXPECT_THAT(namesIn("var"), IsEmpty());
}

TEST(KRPRemoveAllDirectories, ReportComesBeforeTheCommand) {
    const LogCapture log;
    Shell shell;
    const int done = 0;
    shell.answer = &done;
    KRPRemoveAllDirectories("/var/x");
    std::vector<Level> levels;
    for (const auto& entry : log.entries()) levels.push_back(entry.level);
    EXPECT_THAT(levels, ElementsAre(Level::Error, Level::Trace, Level::Trace));
    EXPECT_THAT(shell.commands, ElementsAre("/bin/rm -fr /var/x"));
}

TEST(KRPRemoveAllDirectories, TmpAnywhereInThePathIsNotReported) {
    const LogCapture log;
    Shell shell;
    const int done = 0;
    shell.answer = &done;
    for (const char* const path : {"/tmp", "/var/tmp/x", "x/tmpfiles/y"}) KRPRemoveAllDirectories(path);
    EXPECT_THAT(log.texts(Level::Error), IsEmpty());
    for (const char* const path : {"tmp/x", "/TMP/x", "/tm/p", ""}) KRPRemoveAllDirectories(path);
    EXPECT_THAT(log.texts(Level::Error), ElementsAre("", "", "", ""));
}

TEST(KRPRemoveAllDirectories, EmptyPathRemovesNothing) {
    const TempDir dir;
    const ScopedCwd cwd(dir.path());
    dir.writeFile("file");
    dir.writeFile(".hidden");
    dir.makeDirectory("directory");
    const LogCapture quiet;
    Shell shell;
    KRPRemoveAllDirectories("");
    EXPECT_THAT(shell.commands, ElementsAre("/bin/rm -fr "));
    EXPECT_THAT(namesIn("."), ElementsAre(".hidden", "directory", "file"));
}

TEST(KRPRemoveAllDirectories, NullIsRefused) {
    const LogCapture log;
    Shell shell;
    KRPRemoveAllDirectories(nullptr);
    expectBareErrors(log, 1);
    EXPECT_THAT(shell.commands, IsEmpty());
}

TEST(KRPRemoveAllDirectories, MissingPathIsNoMatter) {
    const TempDir dir;
    const LogCapture log;
    KRPRemoveAllDirectories((dir / "missing").c_str());
    EXPECT_THAT(log.texts(Level::Error), IsEmpty());
}

TEST(KRPRemoveAllDirectories, LongPathsAreNeverCut) {
    const TempDir dir;
    dir.writeFile("file");
    Shell shell;
    for (const std::size_t slashes : {320u, 2000u, 4000u}) {
        const std::string path = dir.path() + std::string(slashes, '/') + "file";
        KRPRemoveAllDirectories(path.c_str());
        EXPECT_EQ("/bin/rm -fr " + path, shell.commands.back());
        EXPECT_THAT(namesIn(dir.path()), IsEmpty());
        dir.writeFile("file");
    }
}

// The system refuses an argument of this length; nothing shorter may be run in its place.
TEST(KRPRemoveAllDirectories, CommandTooLongForTheSystemFailsAsAWhole) {
    const TempDir dir;
    dir.writeFile("file");
    const LogCapture log;
    Shell shell;
    const std::string path = dir.path() + std::string(3'000'000, '/') + "missing";
    KRPRemoveAllDirectories(path.c_str());
    EXPECT_EQ("/bin/rm -fr " + path, shell.commands.back());
    EXPECT_EQ("KRPRemoveAllDirectories after\t" + std::to_string(127 << 8) + "\t" + path + "\t",
              log.texts(Level::Trace).back());
    EXPECT_THAT(namesIn(dir.path()), ElementsAre("file"));
}

// --- KRPCopyFile ----------------------------------------------------------------------------------------------------

TEST(KRPCopyFile, CopiesAFile) {
    const TempDir dir;
    const LogCapture log;
    const std::string content("any\0bytes\n", 10);
    EXPECT_TRUE(KRPCopyFile(dir.writeFile("from", content).c_str(), (dir / "to").c_str()));
    EXPECT_EQ(content, readFileText(dir / "to"));
    EXPECT_EQ(content, readFileText(dir / "from"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(KRPCopyFile, ReplacesAFileAndFillsADirectory) {
    const TempDir dir;
    dir.writeFile("from", "new");
    dir.writeFile("to", "old and longer");
    dir.makeDirectory("directory");
    EXPECT_TRUE(KRPCopyFile((dir / "from").c_str(), (dir / "to").c_str()));
    EXPECT_EQ("new", readFileText(dir / "to"));
    EXPECT_TRUE(KRPCopyFile((dir / "from").c_str(), (dir / "directory").c_str()));
    EXPECT_EQ("new", readFileText(dir / "directory/from"));
}

TEST(KRPCopyFile, OrdinaryNamesStandInDoubleQuotes) {
    const TempDir dir;
    Shell shell;
    const int done = 0;
    shell.answer = &done;
    for (const char* const name :
         {"plain.txt", "with blank", "it's", "*?[a]{b}", "a;b&c|d<e>f(g)h#i~j", "new\nline", "\xc3\xa4"}) {
        const std::string from = dir.writeFile(name);
        const std::string to = std::string("/x/") + name;
        EXPECT_TRUE(KRPCopyFile(from.c_str(), to.c_str()));
        EXPECT_EQ("/bin/cp \"" + from + "\" \"" + to + "\" > /dev/null", shell.commands.back());
    }
}

TEST(KRPCopyFile, NamesThatDoubleQuotesDoNotProtectAreQuotedOtherwise) {
    const TempDir dir;
    const ScopedCwd cwd(dir.path());
    Shell shell;
    const int done = 0;
    shell.answer = &done;
    const struct {
        const char* name;
        const char* argument;
    } rows[] = {
        {"a$b", "'a$b'"},   {"a`b", "'a`b'"},   {"a\\b", "'a\\b'"}, {"a\"b", "'a\"b'"},
        {"$'", "'$'\\'''"}, {"-x", "\"./-x\""}, {"-$", "'./-$'"},   {"-", "\"./-\""},
    };
    for (const auto& row : rows) {
        dir.writeFile(row.name);
        EXPECT_TRUE(KRPCopyFile(row.name, "plain"));
        EXPECT_EQ("/bin/cp " + std::string(row.argument) + " \"plain\" > /dev/null", shell.commands.back());
        EXPECT_TRUE(KRPCopyFile(dir.writeFile("plain").c_str(), row.name));
        EXPECT_EQ("/bin/cp \"" + (dir / "plain") + "\" " + row.argument + " > /dev/null", shell.commands.back());
    }
}

TEST(KRPCopyFile, HostileNamesMeanThatFileOnly) {
    for (const std::string name : kHostileNames) {
        const TempDir dir;
        dir.makeDirectory("from");
        dir.makeDirectory("to");
        dir.writeFile("from/decoy", "decoy");
        dir.writeFile("from/" + name, "the content of " + name);
        const ScopedCwd cwd(dir / "from");
        EXPECT_TRUE(KRPCopyFile(name.c_str(), "../to/plain")) << testing::PrintToString(name);
        EXPECT_EQ("the content of " + name, readFileText("../to/plain"));
        const ScopedCwd target(dir / "to");
        EXPECT_TRUE(KRPCopyFile("plain", name.c_str())) << testing::PrintToString(name);
        EXPECT_EQ("the content of " + name, readFileText("./" + name));
        EXPECT_THAT(namesIn("."), testing::UnorderedElementsAre("plain", name));
        EXPECT_THAT(namesIn("../from"), testing::UnorderedElementsAre("decoy", name));
    }
}

TEST(KRPCopyFile, NamesEqualButForCaseAreNotCopied) {
    const TempDir dir;
    const LogCapture log;
    Shell shell;
    dir.writeFile("A.txt");
    EXPECT_FALSE(KRPCopyFile((dir / "A.txt").c_str(), (dir / "a.txt").c_str()));
    EXPECT_FALSE(KRPCopyFile((dir / "A.txt").c_str(), (dir / "A.txt").c_str()));
    EXPECT_FALSE(KRPCopyFile("", ""));
    EXPECT_THAT(shell.commands, IsEmpty());
    EXPECT_THAT(namesIn(dir.path()), ElementsAre("A.txt"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(KRPCopyFile, MissingSourceIsNotCopied) {
    const TempDir dir;
    const LogCapture log;
    Shell shell;
    std::filesystem::create_symlink("nowhere", dir / "dangling");
    EXPECT_FALSE(KRPCopyFile((dir / "missing").c_str(), (dir / "to").c_str()));
    EXPECT_FALSE(KRPCopyFile((dir / "dangling").c_str(), (dir / "to").c_str()));
    EXPECT_FALSE(KRPCopyFile("", (dir / "to").c_str()));
    EXPECT_THAT(shell.commands, IsEmpty());
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(KRPCopyFile, TrueExactlyWhenTheCommandSucceeded) {
    const TempDir dir;
    const std::string from = dir.writeFile("from");
    const struct {
        int status;
        bool result;
    } rows[] = {{0, true}, {1, false}, {256, false}, {-1, false}, {127 << 8, false}, {SIGKILL, false}};
    for (const auto& row : rows) {
        const LogCapture log;
        Shell shell;
        shell.answer = &row.status;
        EXPECT_EQ(row.result, KRPCopyFile(from.c_str(), (dir / "to").c_str())) << row.status;
        EXPECT_THAT(log.entries(), IsEmpty());
    }
}

TEST(KRPCopyFile, FailingCommandIsFalse) {
    const TempDir dir;
    const ScopedCwd cwd(dir.path());
    const std::string from = dir.writeFile("from");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(KRPCopyFile(from.c_str(), (dir / "missing/to").c_str()));
    EXPECT_FALSE(KRPCopyFile(from.c_str(), ""));
    EXPECT_FALSE(KRPCopyFile(dir.path().c_str(), (dir / "to").c_str()));
    EXPECT_NE("", testing::internal::GetCapturedStderr());
    EXPECT_THAT(namesIn(dir.path()), ElementsAre("from"));
}

TEST(KRPCopyFile, NullIsRefusedSilently) {
    const TempDir dir;
    const std::string from = dir.writeFile("from");
    Shell shell;
    for (const auto& [first, second] : {std::pair<const char*, const char*>{nullptr, "to"}, {from.c_str(), nullptr}}) {
        const LogCapture log;
        EXPECT_FALSE(KRPCopyFile(first, second));
        EXPECT_THAT(log.entries(), IsEmpty());
    }
    EXPECT_THAT(shell.commands, IsEmpty());
}

TEST(KRPCopyFile, LongNamesAreNeverCut) {
    const TempDir dir;
    dir.writeFile("from", "content");
    const std::string from = dir.path() + std::string(4000, '/') + "from";
    const std::string to = dir.path() + std::string(4000, '/') + "to";
    EXPECT_TRUE(KRPCopyFile(from.c_str(), to.c_str()));
    EXPECT_EQ("content", readFileText(dir / "to"));
    EXPECT_FALSE(KRPCopyFile(from.c_str(), (dir.path() + std::string(3'000'000, '/') + "to").c_str()));
}

// Such a host's system() cannot learn how a command ended.
TEST(KRPCopyFile, HostThatIgnoresItsChildrenIsToldFalse) {
    const TempDir dir;
    dir.writeFile("from", "content");
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_FALSE(KRPCopyFile((dir / "from").c_str(), (dir / "to").c_str()));
    std::signal(SIGCHLD, before);
    EXPECT_EQ("content", readFileText(dir / "to"));
}

// --- generated names ------------------------------------------------------------------------------------------------

namespace {

// Two hundred names; every other one holds each of the 254 bytes that a name can hold, in any order.
std::vector<std::string> generatedNames() {
    std::mt19937 random(20261121);
    std::string alphabet;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') alphabet += static_cast<char>(byte);
    }
    std::vector<std::string> names;
    while (names.size() < 200) {
        std::shuffle(alphabet.begin(), alphabet.end(), random);
        const std::string name = alphabet.substr(0, names.size() % 2 == 0 ? 254 : 1 + random() % 40);
        if (name != "." && name != "..") names.push_back(name);
    }
    return names;
}

}  // namespace

TEST(ShellCommands, GeneratedNamesAreCopiedAndRemovedExactly) {
    const LogCapture quiet;
    const TempDir dir;
    dir.makeDirectory("from");
    dir.makeDirectory("to");
    for (const std::string& name : generatedNames()) {
        dir.writeFile("from/decoy");
        dir.writeFile("from/" + name, name);
        const ScopedCwd cwd(dir / "from");
        ASSERT_TRUE(KRPCopyFile(name.c_str(), ("../to/" + name).c_str())) << testing::PrintToString(name);
        ASSERT_THAT(namesIn("../to"), ElementsAre(name));
        ASSERT_EQ(name, readFileText("../to/" + name));
        KRPRemoveAllDirectories(name.c_str());
        ASSERT_THAT(namesIn("."), ElementsAre("decoy")) << testing::PrintToString(name);
        KRPRemoveAllDirectories((dir / "to/" + name).c_str());
        ASSERT_THAT(namesIn("../to"), IsEmpty()) << testing::PrintToString(name);
    }
}

// --- KRPGetTempDirectory --------------------------------------------------------------------------------------------

TEST(KRPGetTempDirectory, IsTmpAndLeavesNothingOpen) {
    const OpenDescriptors descriptors;
    const char* const first = KRPGetTempDirectory();
    EXPECT_STREQ("/tmp", first);
    EXPECT_EQ(first, KRPGetTempDirectory());
    EXPECT_THAT(descriptors.addedTargets(), IsEmpty());
}

TEST(KRPGetTempDirectory, IsEmptyWhenTmpCannotBeOpened) {
    refuseDirectories = true;
    EXPECT_STREQ("", KRPGetTempDirectory());
    refuseDirectories = false;
}

// --- KRPGetTempName -------------------------------------------------------------------------------------------------

TEST(KRPGetTempName, NamesAFileInTheDirectoryWithoutMakingIt) {
    const TempDir dir;
    const ScopedEnv noTmpdir("TMPDIR", nullptr);
    KREnvContainerClass env;
    const std::string name = env.KRPGetTempName(dir.path().c_str());
    EXPECT_EQ(0u, name.find(dir.path() + "/tmp")) << name;
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
}

TEST(KRPGetTempName, AsksForThePathVariablesDirectory) {
    TempNames names;
    names.answer = "/somewhere/tmp1";
    const ScopedEnv home("HOME", "/home/x");
    const ScopedEnv other("KRENV_TEST_DIR", "/other");
    const ScopedEnv unset("KRENV_TEST_UNSET", nullptr);
    const struct {
        const char* var;
        const char* directory;
    } rows[] = {
        {"HOME", "/home/x"}, {"$KRENV_TEST_DIR", "/other"}, {"/literal", "/literal"},
        {"", "none"},        {"$KRENV_TEST_UNSET", "none"}, {"#UNSET", "none"},
    };
    for (const auto& row : rows) {
        KREnvContainerClass env;
        EXPECT_STREQ("/somewhere/tmp1", env.KRPGetTempName(row.var));
        EXPECT_EQ(row.directory, names.directory);
        EXPECT_EQ("tmp", names.prefix);
    }
}

TEST(KRPGetTempName, NullVariableIsReportedAndGetsTheSystemsDirectory) {
    TempNames names;
    names.answer = "/tmp/tmp1";
    const LogCapture log;
    KREnvContainerClass env;
    EXPECT_STREQ("/tmp/tmp1", env.KRPGetTempName(nullptr));
    EXPECT_EQ("none", names.directory);
    expectBareErrors(log, 1);
}

TEST(KRPGetTempName, BufferIsSharedByAllObjectsAndThreads) {
    TempNames names;
    names.answer = "/tmp/first";
    KREnvContainerClass one;
    KREnvContainerClass two;
    const char* const first = one.KRPGetTempName("/tmp");
    names.answer = "/tmp/second";
    const char* second = nullptr;
    std::thread([&] { second = two.KRPGetTempName("/tmp"); }).join();
    EXPECT_EQ(first, second);
    EXPECT_STREQ("/tmp/second", first);
}

TEST(KRPGetTempName, FailureIsNullAndKeepsTheBuffer) {
    TempNames names;
    names.answer = "/tmp/kept";
    KREnvContainerClass env;
    const LogCapture log;
    const char* const kept = env.KRPGetTempName("/tmp");
    for (const std::string& answer : {std::string(), "/" + std::string(4095, 'n'), std::string(100'000, 'n')}) {
        names.answer = answer;
        EXPECT_EQ(nullptr, env.KRPGetTempName("/tmp"));
        EXPECT_STREQ("/tmp/kept", kept);
    }
    EXPECT_THAT(log.entries(), IsEmpty());
    names.answer = "/" + std::string(4094, 'n');
    EXPECT_EQ(names.answer, env.KRPGetTempName("/tmp"));
}

// --- KRPChdir -------------------------------------------------------------------------------------------------------

TEST(KRPChdir, ChangesTheWorkingDirectory) {
    const TempDir dir;
    const ScopedCwd back(".");
    EXPECT_TRUE(KRPChdir(dir.path().c_str()));
    EXPECT_EQ(dir.path(), std::filesystem::current_path());
}

TEST(KRPChdir, FailureIsFalseAndChangesNothing) {
    const TempDir dir;
    const ScopedCwd back(dir.path());
    const LogCapture log;
    dir.writeFile("file");
    for (const char* const path : {"missing", "file", ""}) EXPECT_FALSE(KRPChdir(path)) << path;
    EXPECT_EQ(dir.path(), std::filesystem::current_path());
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(KRPChdir, NullIsRefusedSilently) {
    const LogCapture log;
    EXPECT_FALSE(KRPChdir(nullptr));
    EXPECT_THAT(log.entries(), IsEmpty());
}

// --- LogLastError ---------------------------------------------------------------------------------------------------

TEST(LogLastError, TellsNumberAndDescription) {
    const struct {
        int number;
        const char* text;
    } rows[] = {
        {EACCES, "Failed to create dir. Error: 13:Permission denied"},
        {ENOENT, "Failed to create dir. Error: 2:No such file or directory"},
        {0, "Failed to create dir. Error: 0:Success"},
        {99999, "Failed to create dir. Error: 99999:Unknown error 99999"},
        {-1, "Failed to create dir. Error: -1:Unknown error -1"},
    };
    for (const auto& row : rows) {
        const LogCapture log;
        errno = row.number;
        LogLastError("Failed to create dir");
        ASSERT_EQ(1u, log.entries().size());
        EXPECT_THAT(log.texts(Level::Error), ElementsAre(row.text));
        EXPECT_EQ("PMEnvironment", log.entries()[0].category);
        EXPECT_EQ("../src/krpfiles", log.entries()[0].file);
    }
}

TEST(LogLastError, SubjectMayBeAnything) {
    const LogCapture log;
    errno = EPERM;
    LogLastError("");
    errno = EPERM;
    LogLastError(nullptr);
    errno = EPERM;
    LogLastError(std::string(1000, 'w').c_str());
    EXPECT_THAT(log.texts(Level::Error),
                ElementsAre(". Error: 1:Operation not permitted", "<NullChar*>. Error: 1:Operation not permitted",
                            std::string(1000, 'w') + ". Error: 1:Operation not permitted"));
}

TEST(LogLastError, WritesNothingWhileErrorsAreDisabled) {
    const LogCapture log;
    nLogging::gEnable(Level::Error, false);
    errno = EACCES;
    LogLastError("what");
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(LogLastError, ReadsTheCallingThreadsNumber) {
    const LogCapture log;
    errno = EACCES;
    std::thread([] {
        errno = ENOSPC;
        LogLastError("there");
    }).join();
    errno = EACCES;
    LogLastError("here");
    EXPECT_THAT(log.texts(Level::Error),
                ElementsAre("there. Error: 28:No space left on device", "here. Error: 13:Permission denied"));
}
