// Malformed and odd settings files: those of corpus/ini, and those that a repository cannot hold.
#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "krs.h"
#include "support/InChild.h"
#include "support/ScopedTable.h"
#include "support/TempDir.h"

namespace {

// Every entry as "LINE KEY=VALUE" and a newline, replaced ones included.
std::string entriesOf(int table) {
    std::string text;
    KRSEntry entry{};
    for (std::size_t i = 0; KRSGetEntry(table, i, &entry); ++i) {
        text += std::to_string(entry.line) + " " + entry.key + "=" + entry.value + "\n";
    }
    return text;
}

// True when each look-up finds the entry in force, and only that.
bool lookUpsAgree(int table) {
    KRSEntry entry{};
    for (std::size_t i = 0; KRSGetEntry(table, i, &entry); ++i) {
        if ((KRSGetValue(table, entry.key) == entry.value) != entry.inForce) return false;
    }
    return true;
}

constexpr char kMissingEquals[] = "missing '=', expected KEY = value";
constexpr char kMissingKey[] = "missing key before '=', expected KEY = value";
constexpr char kUnclosed[] = "missing ']' after the section name, expected [name]";
constexpr char kTextBehind[] = "unexpected text after ']', expected [name] alone";
constexpr char kNul[] = "NUL byte; a settings file is plain text";

std::string at(const char* place, const char* reason) { return std::string(":") + place + ": " + reason; }

struct CorpusRow {
    const char* file;     // without its .ini
    std::string error;    // behind the path; "" for a file that loads
    const char* entries;  // "LINE KEY=VALUE\n" for each
};

const CorpusRow kCorpus[] = {
    {"empty", "", ""},
    {"one-byte", at("1:1", kMissingEquals), ""},
    {"one-equals-sign", at("1:1", kMissingKey), ""},
    {"one-newline", "", ""},
    {"blank-lines", "", ""},

    {"bom-only", "", ""},
    {"bom-then-key", "", "1 A=1\n"},
    {"bom-twice", "", "1 \357\273\277A=1\n"},
    {"bom-half", at("1:1", kMissingEquals), ""},
    {"bom-then-error", at("1:1", kMissingEquals), ""},

    {"crlf", "", "2 S.A=1\n5 S.B=2\n"},
    {"crlf-no-last-line-feed", "", "1 A=1\n2 B=2\n"},
    {"cr-only", "", "1 A=1\rB=2\n"},
    {"cr-inside-line", "", "1 A\r=1\n2 B=\r2\n"},
    {"no-last-newline", "", "1 A=1\n2 B=2\n"},

    {"missing-equals", at("2:1", kMissingEquals), ""},
    {"missing-equals-indented", at("2:4", kMissingEquals), ""},
    {"missing-equals-last-line", at("3:1", kMissingEquals), ""},
    {"missing-key", at("2:1", kMissingKey), ""},
    {"missing-key-indented", at("1:3", kMissingKey), ""},

    {"section-unclosed", at("1:1", kUnclosed), ""},
    {"section-unclosed-at-end", at("2:3", kUnclosed), ""},
    {"section-then-text", at("1:5", kTextBehind), ""},
    {"section-then-equals", at("1:4", kTextBehind), ""},
    {"section-closed-twice", at("1:4", kTextBehind), ""},
    {"section-then-comment", "", "2 S.A=1\n4 T.B=2\n"},
    {"section-empty", "", "2 S.A=1\n4 A=2\n6 B=3\n"},
    {"section-blanks", "", "2 My Section.A=1\n"},
    {"section-holds-bracket", "", "2 a[b.A=1\n"},
    {"section-with-dots", "", "2 a.b.c=1\n4 a.b.c=2\n"},
    {"section-again", "", "2 S.A=1\n4 T.A=2\n6 S.A=3\n7 S.B=4\n"},
    {"section-without-keys", "", ""},

    {"nul-in-value", at("2:4", kNul), ""},
    {"nul-in-comment", at("1:2", kNul), ""},
    {"nul-only", at("1:1", kNul), ""},
    {"nul-behind-last-line", at("2:1", kNul), ""},
    {"nul-in-section", at("1:3", kNul), ""},
    {"utf16", at("1:4", kNul), ""},
    {"binary-program", at("1:8", kNul), ""},
    {"binary-all-bytes", at("1:1", kMissingEquals), ""},
    {"high-bytes", "", "1 \xff\xfe=\x80\n2 \xc3\xa4=\xc2\xa0\n"},

    {"comments", "", "5 E=5\n"},
    {"comment-without-newline", "", ""},
    {"comment-sign-in-value", "", "1 A=x ; y # z\n2 B=;\n3 C=#\n4 R=#(A)\n"},
    {"comment-sign-in-key", "", "1 A;B=1\n2 A#B=2\n"},

    {"values-empty", "", "1 A=\n2 B=\n3 C=\n"},
    {"quotes", "",
     "1 A=  x \n2 B=\"\n3 C=\"abc\n4 D=abc\"\n5 E=a\" \"b\n6 F=\"x\"\n7 G=\t\n8 H='x'\n9 I=a;b#c=d\n10 J=\"x\" ; y\n"},
    {"quotes-in-key", "", "1 \"A\"=1\n"},
    {"equals-sign-in-value", "", "1 A=b=c\n2 B==\n3 C==\n"},
    {"blanks", "", "1 A b=c d\n"},
    {"other-white-space", "", "1 \vA=1\n2 \fB=2\v\n"},
    {"same-key", "", "1 A=1\n2 A=2\n3 a=3\n4 A=4\n5 A=5\n"},
    {"backslashes", "", "1 A=a\\nb\n2 B=\\\n3 C=\\\n"},
    {"references-unclosed", "", "1 A=${\n2 B=#{A\n3 C=$(\n4 D=}\n5 E=##(\n"},

    {"json", at("1:1", kMissingEquals), ""},
    {"xml", "", "1 <a b=\"c\">\n"},
    {"yaml", at("1:1", kMissingEquals), ""},
    {"shell", "", "1 export A=1\n"},
};

std::string corpusPath(const std::string& name) { return std::string(CORPUS_DIR) + "/" + name + ".ini"; }

// Loads `path`, which must fail, into a table that holds something; the error's text behind the path.
std::string errorOfRefused(const std::string& path) {
    const TempDir dir;
    const ScopedTable table;
    EXPECT_NE(0, KRSLoad(dir.writeFile("before.ini", "BEFORE=1\nA=old\n").c_str(), table.handle(), nullptr));
    EXPECT_EQ(0, KRSLoad(path.c_str(), table.handle(), nullptr)) << path;
    EXPECT_EQ("1 BEFORE=1\n2 A=old\n", entriesOf(table.handle())) << path << " changed the table";
    EXPECT_TRUE(lookUpsAgree(table.handle()));
    const std::string error = KRSLoadError();
    EXPECT_EQ(path, error.substr(0, path.size()));
    return error.substr(std::min(path.size(), error.size()));
}

}  // namespace

TEST(SettingsCorpus, EachFileGivesItsResult) {
    for (const CorpusRow& row : kCorpus) {
        if (!row.error.empty()) {
            EXPECT_EQ(row.error, errorOfRefused(corpusPath(row.file))) << row.file;
            continue;
        }
        const ScopedTable table;
        EXPECT_NE(0, KRSLoad(corpusPath(row.file).c_str(), table.handle(), nullptr)) << KRSLoadError();
        EXPECT_EQ(row.entries, entriesOf(table.handle())) << row.file;
        EXPECT_TRUE(lookUpsAgree(table.handle())) << row.file;
    }
}

TEST(SettingsCorpus, HasARowForEachFile) {
    std::set<std::string> inTable;
    for (const CorpusRow& row : kCorpus) inTable.insert(row.file);
    std::set<std::string> inDirectory;
    for (const auto& file : std::filesystem::directory_iterator(CORPUS_DIR)) inDirectory.insert(file.path().stem());
    EXPECT_EQ(inTable, inDirectory);
}

// The prefixes bring each state of the parser to the end of the text.
TEST(SettingsCorpus, EachPrefixOfEachFileEndsWithAResult) {
    const TempDir dir;
    for (const CorpusRow& row : kCorpus) {
        const std::string text = readFileText(corpusPath(row.file));
        for (std::size_t length = 0; length <= text.size(); ++length) {
            const ScopedTable table;
            const std::string path = dir.writeFile("prefix.ini", text.substr(0, length));
            if (KRSLoad(path.c_str(), table.handle(), nullptr) != 0) {
                EXPECT_TRUE(lookUpsAgree(table.handle()));
            } else {
                EXPECT_EQ("", entriesOf(table.handle()));
            }
        }
    }
}

TEST(SettingsOddFile, LongLines) {
    const TempDir dir;
    const std::string mebibyte(1U << 20, 'x');
    EXPECT_EQ(at("2:1", kMissingEquals), errorOfRefused(dir.writeFile("line.ini", "A=1\n" + mebibyte + "\nB=2\n")));
    EXPECT_EQ(at("1:1048577", kNul), errorOfRefused(dir.writeFile("nul.ini", mebibyte + '\0')));
    EXPECT_EQ(at("1:1", kUnclosed), errorOfRefused(dir.writeFile("section.ini", "[" + mebibyte)));

    const ScopedTable table;
    const std::string path =
        dir.writeFile("good.ini", "A=" + mebibyte + "\n" + mebibyte + "=B\n[" + mebibyte + "]\nC=D");
    EXPECT_NE(0, KRSLoad(path.c_str(), table.handle(), nullptr)) << KRSLoadError();
    EXPECT_EQ(mebibyte, KRSGetValue(table.handle(), "A"));
    EXPECT_STREQ("B", KRSGetValue(table.handle(), mebibyte.c_str()));
    EXPECT_STREQ("D", KRSGetValue(table.handle(), (mebibyte + ".C").c_str()));
}

TEST(SettingsOddFile, NothingThere) {
    const TempDir dir;
    const std::string noEntry = ": cannot open the file: No such file or directory";
    EXPECT_EQ(noEntry, errorOfRefused(dir / "missing.ini"));
    ASSERT_EQ(0, symlink("/no/such/target", (dir / "dangling.ini").c_str()));
    EXPECT_EQ(noEntry, errorOfRefused(dir / "dangling.ini"));
    ASSERT_EQ(0, symlink("circle.ini", (dir / "circle.ini").c_str()));
    EXPECT_EQ(": cannot open the file: Too many levels of symbolic links", errorOfRefused(dir / "circle.ini"));
    dir.writeFile("file", "");
    EXPECT_EQ(": cannot open the file: Not a directory", errorOfRefused(dir / "file/x.ini"));
    EXPECT_EQ(": cannot open the file: File name too long", errorOfRefused(dir / std::string(300, 'x')));
}

TEST(SettingsOddFile, FollowsSymbolicLink) {
    const TempDir dir;
    dir.writeFile("target.ini", "A=1\n");
    ASSERT_EQ(0, symlink("target.ini", (dir / "link.ini").c_str()));
    const ScopedTable table;
    EXPECT_NE(0, KRSLoad((dir / "link.ini").c_str(), table.handle(), nullptr)) << KRSLoadError();
    EXPECT_STREQ("1", KRSGetValue(table.handle(), "A"));
}

TEST(SettingsOddFile, NotARegularFile) {
    const TempDir dir;
    EXPECT_EQ(": this is a directory, a settings file is expected", errorOfRefused(dir.path()));

    const std::string notRegular = ": this is not a regular file, a settings file is expected";
    EXPECT_EQ(notRegular, errorOfRefused("/dev/zero"));
    EXPECT_EQ(notRegular, errorOfRefused("/dev/null"));
    ASSERT_EQ(0, mkfifo((dir / "pipe.ini").c_str(), 0600));
    EXPECT_EQ(notRegular, errorOfRefused(dir / "pipe.ini"));

    const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (dir / "socket.ini").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(": cannot open the file: No such device or address", errorOfRefused(dir / "socket.ini"));
    close(listening);
}

// Files of /proc say that they are empty and are not.
TEST(SettingsOddFile, FileOfProc) {
    EXPECT_EQ(at("1:1", kMissingEquals), errorOfRefused("/proc/sys/kernel/ostype"));
    EXPECT_EQ(at("1:1", kMissingEquals), errorOfRefused("/proc/self/status"));
    EXPECT_EQ(": cannot read the file: Input/output error", errorOfRefused("/proc/self/mem"));
}

TEST(SettingsOddFile, UnreadableFile) {
    const TempDir dir;
    const std::string path = dir.writeFile("secret.ini", "A=1\n");
    ASSERT_EQ(0, chmod(path.c_str(), 0));
    ASSERT_EQ(0, chmod(dir.path().c_str(), 0755));
    if (geteuid() != 0) {
        EXPECT_EQ(": cannot open the file: Permission denied", errorOfRefused(path));
        return;
    }
    // The superuser may read everything, so a child gives that up.
    EXPECT_EQ(path + ": cannot open the file: Permission denied", inChild([&]() -> std::string {
                  if (setgid(65534) != 0 || setuid(65534) != 0) return "the child kept the superuser's rights";
                  const ScopedTable table;
                  return KRSLoad(path.c_str(), table.handle(), nullptr) == 0 ? KRSLoadError() : "the file was loaded";
              }));
}

TEST(SettingsOddFile, AsLargeAsTheLimitIsRead) {
    const TempDir dir;
    const std::string path = dir.writeFile("large.ini", "");
    std::filesystem::resize_file(path, 256ULL << 20);
    EXPECT_EQ(":1:1: NUL byte; a settings file is plain text", errorOfRefused(path)) << "of the hole";
}

TEST(SettingsOddFile, LargerThanTheLimit) {
    const TempDir dir;
    const std::string path = dir.writeFile("large.ini", "");
    std::filesystem::resize_file(path, (256ULL << 20) + 1);
    EXPECT_EQ(": the file is larger than 256 MiB, split it", errorOfRefused(path));
    std::filesystem::resize_file(path, 5ULL << 30);  // over 32 bits; mostly a hole
    EXPECT_EQ(": the file is larger than 256 MiB, split it", errorOfRefused(path));
}

TEST(SettingsOddFile, ManyBlankLines) {
    const TempDir dir;
    const ScopedTable table;
    const std::string path = dir.writeFile("blank.ini", std::string(16U << 20, '\n') + "A=1");
    EXPECT_NE(0, KRSLoad(path.c_str(), table.handle(), nullptr)) << KRSLoadError();
    EXPECT_EQ("16777217 A=1\n", entriesOf(table.handle()));
}

// The limit held for one load only; the table grew with each.
TEST(SettingsOddFile, LoadsIntoOneTableAreBoundedTogether) {
    const TempDir dir;
    std::string text = "[" + std::string(1U << 20, 's') + "]\n";
    for (int i = 0; i < 200; ++i) text += "a=\n";
    const std::string path = dir.writeFile("large.ini", text);
    const ScopedTable table;
    for (int i = 0; i < 2; ++i) EXPECT_NE(0, KRSLoad(path.c_str(), table.handle(), nullptr)) << KRSLoadError();
    EXPECT_EQ(0, KRSLoad(path.c_str(), table.handle(), nullptr));
    EXPECT_EQ(path + ": the table's texts need more than 512 MiB; look for a very long section name or value in use",
              KRSLoadError());
    EXPECT_EQ(400U, KRSEntryCount(table.handle())) << "the table is as it was";
}

// Two megabytes that would have needed 340 GiB: a long section name above many keys.
TEST(SettingsOddFile, SectionNameAboveManyKeysIsBounded) {
    const TempDir dir;
    std::string text = "[" + std::string(1U << 20, 's') + "]\n";
    for (int i = 0; i < 350'000; ++i) text += "a=\n";
    const std::string error = errorOfRefused(dir.writeFile("bomb.ini", text));
    EXPECT_THAT(
        error,
        testing::AnyOf(": the table's texts need more than 512 MiB; look for a very long section name or value in use",
                       ": not enough memory"));
}
