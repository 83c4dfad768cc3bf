// Recordings that are cut, damaged, foreign or hostile.
#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "failure.h"
#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"
#include "support/TempDir.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

// What reading it ends with: the text of the Failure, or "".
std::string failureOf(const std::string& path) {
    try {
        readRecording(path);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "";
}

std::string headerText() {
    const TempDir dir;
    record(dir / "run", {}, someHeader(), false);
    return readFileText(dir / "run");
}

// An idle engine for 3 seconds, which is clean, but for a stop in its last second.
std::vector<Evidence> smallRun() {
    std::vector<Evidence> run;
    MadeRun().each(3, [&run](Evidence& evidence) {
        evidence.engines.push_back(engineThat(evidence.from < 2.5 ? Did{5} : Did{0, 0, 0, 0, 100}, evidence.from));
        run.push_back(asRecorded(evidence));
    });
    return run;
}

std::size_t count(const std::string& text, char character) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), character));
}

void compress(const std::string& path, const std::string& text) {
    const gzFile file = gzopen(path.c_str(), "wb");
    gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
    gzclose(file);
}

// --- cut ------------------------------------------------------------------------------------------------------------

TEST(CutRecording, LosesAtMostItsLastLineAndSaysSo) {
    const TempDir dir;
    const std::vector<Evidence> run = smallRun();
    record(dir / "run", run);
    const std::string whole = readFileText(dir / "run");
    const std::size_t header = whole.find('\n') + 1;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        dir.writeFile("cut", whole.substr(0, length));
        if (length < header) {
            EXPECT_THAT(failureOf(dir / "cut"),
                        HasSubstr(length == 0 ? ":1:1: the file is empty" : ":1:1: the first line is cut off"));
            continue;
        }
        const ReadRecording read = readRecording(dir / "cut");
        EXPECT_EQ(read.run.size(), std::min(count(whole.substr(0, length), '\n') - 1, run.size())) << length;
        ASSERT_EQ(read.warnings.size(), 1U) << length;
        EXPECT_THAT(read.warnings[0], HasSubstr("/cut: the recording breaks off at second "));
        EXPECT_FALSE(read.outcome);
        const bool atLine = whole[length - 1] == '\n';
        EXPECT_EQ(read.warnings[0].find("its last line is cut off") == std::string::npos, atLine) << length;
    }
}

TEST(CutRecording, CompressedBreaksOffAsWell) {
    const TempDir dir;
    const std::vector<Evidence> run = smallRun();
    record(dir / "run", run);
    compress(dir / "run.gz", readFileText(dir / "run"));
    const std::string whole = readFileText(dir / "run.gz");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        dir.writeFile("cut", whole.substr(0, length));
        const std::string failure = failureOf(dir / "cut");
        if (!failure.empty()) {
            EXPECT_THAT(failure, HasSubstr("/cut:1:1: ")) << length;
            continue;
        }
        const ReadRecording read = readRecording(dir / "cut");
        EXPECT_EQ(read.warnings.size(), 1U) << length;
        EXPECT_LE(read.run.size(), run.size());
        EXPECT_EQ(describe(read.run),
                  describe({run.begin(), run.begin() + static_cast<std::ptrdiff_t>(read.run.size())}));
    }
}

TEST(CutRecording, ZerosAtTheEndArePartOfTheCut) {
    const TempDir dir;
    record(dir / "run", smallRun(), someHeader(), false);
    dir.writeFile("run", readFileText(dir / "run") + std::string(100, '\0'));
    EXPECT_EQ(readRecording(dir / "run").run.size(), smallRun().size());
    EXPECT_THAT(readRecording(dir / "run").warnings, ElementsAre(HasSubstr("its last line is cut off")));
}

// --- compressed -----------------------------------------------------------------------------------------------------

TEST(CompressedRecording, IsReadLikeThePlainOne) {
    const TempDir dir;
    const std::vector<Evidence> run = RandomRun(3).of(200);
    record(dir / "run", run);
    compress(dir / "run.gz", readFileText(dir / "run"));
    const ReadRecording read = readRecording(dir / "run.gz");
    EXPECT_EQ(describe(read.run), describe(run));
    EXPECT_THAT(read.warnings, IsEmpty());
}

TEST(CompressedRecording, ThatIsDamagedIsRefused) {
    const TempDir dir;
    record(dir / "run", RandomRun(3).of(200));
    compress(dir / "run.gz", readFileText(dir / "run"));
    std::string bytes = readFileText(dir / "run.gz");
    for (std::size_t i = bytes.size() / 2; i < bytes.size() / 2 + 50; ++i) bytes[i] = static_cast<char>(~bytes[i]);
    dir.writeFile("bad.gz", bytes);
    EXPECT_THAT(failureOf(dir / "bad.gz"), HasSubstr("/bad.gz:"));
    compress(dir / "run.gz", headerText());
    bytes = readFileText(dir / "run.gz");
    bytes[bytes.size() - 8] = static_cast<char>(~bytes[bytes.size() - 8]);  // of the checksum
    dir.writeFile("bad.gz", bytes);
    EXPECT_THAT(failureOf(dir / "bad.gz"), EndsWith("/bad.gz:1:1: the compressed data are damaged; take another copy"));
}

// --- damaged in the middle ------------------------------------------------------------------------------------------

TEST(DamagedRecording, IsRefusedWithThePlace) {
    const TempDir dir;
    const std::string engine = R"({"pid":1,"start":2,"name":"e","tid":3,"thread":"t"})";
    const std::string first = R"({"to":1000000,"engines":[[0,0,5,)" + engine + "]]}\n";
    const struct {
        std::string line;
        const char* error;
    } rows[] = {
        {"", ":3:1: The document is empty."},
        {"{", ":3:2: Missing a name for object member."},
        {"{\"to\":1000001,\"engines\":[}", ":3:26: Invalid value."},
        {"7", ":3:1: this is no JSON object"},
        {"{\"to\":NaN,\"engines\":[]}", ":3:7: Invalid value."},
        {"{\"to\":1e999,\"engines\":[]}", ":3:7: Number too big to be stored in double."},
        {"{\"to\":1e-999,\"engines\":[]}", ":3:7: this number is too large or too small"},
        {"{\"to\":1000001}", ":3:1: \"engines\" is missing"},
        {"{\"to\":999999,\"engines\":[]}", ":3:2: \"to\" needs whole numbers from 1000000 to 1000000000000000"},
        {"{\"to\":1000000000000001,\"engines\":[]}", ":3:2: \"to\" needs whole numbers from 1000000 to "},
        {"{\"to\":99999999999999999999,\"engines\":[]}", ":3:2: \"to\" needs whole numbers"},
        {"{\"to\":1000001.5,\"engines\":[]}", ":3:2: \"to\" needs whole numbers"},
        {"{\"to\":\"2\",\"engines\":[]}", ":3:2: \"to\" needs whole numbers"},
        {"{\"to\":1000001,\"from\":1000002,\"engines\":[]}", ":3:15: \"from\" needs whole numbers from 0 to 1000001"},
        {"{\"to\":1000001,\"engines\":{}}", ":3:15: \"engines\" is no list"},
        {"{\"to\":1000001,\"engines\":[7]}", ":3:15: \"engines\" needs a list of numbers each"},
        {"{\"to\":1000001,\"engines\":[[]]}", ":3:15: \"engines\" needs a list of numbers each"},
        {"{\"to\":1000001,\"engines\":[[{}]]}", ":3:15: \"engines\" needs a list of numbers each"},
        {"{\"to\":1000001,\"engines\":[[1]]}", ":3:15: \"engines\": engine 1 has not been introduced"},
        {"{\"to\":1000001,\"engines\":[[0],[0]]}", ":3:15: \"engines\": engine 0 is there twice"},
        {"{\"to\":1000001,\"engines\":[[0,1]]}", ":3:15: \"engines\": thread 1 has not been introduced"},
        {"{\"to\":1000001,\"engines\":[[0,0,-1]]}", ":3:15: \"engines\" needs whole numbers from 0 to "},
        {"{\"to\":1000001,\"engines\":[[0,0,1,1,1,0,-2]]}", ":3:15: \"engines\" needs whole numbers from -1 to "},
        {"{\"to\":1000001,\"engines\":[[0,{\"from\":2,\"to\":1}]]}", ":3:15: \"to\" of an engine lies before its"},
        {"{\"to\":1000001,\"engines\":[[0,{\"blocked\":-1}]]}", ":3:30: \"blocked\" needs whole numbers from 0 to "},
        {"{\"to\":1000001,\"engines\":[[0,{\"name\":7}]]}", ":3:30: \"name\" is no text"},
        {"{\"to\":1000001,\"engines\":[],\"machine\":[]}", ":3:28: \"machine\" is no object"},
        {"{\"to\":1000001,\"engines\":[],\"machine\":{\"processors\":0}}", ":3:39: \"processors\" needs whole numbers"},
        {"{\"to\":1000001,\"engines\":[],\"wakes\":[1]}", ":3:28: \"wakes\" needs three numbers"},
        {"{\"to\":1000001,\"engines\":[],\"others\":[[\"x\"]]}", ":3:28: \"others\" needs a name and two numbers each"},
        {"{\"to\":1000001,\"engines\":[],\"ends\":[{}]}", ":3:1: \"pid\" is missing"},
        {"{\"to\":1000001,\"engines\":[],\"ends\":[{\"pid\":1,\"start\":2,\"name\":\"e\",\"time\":1,\"status\":null,"
         "\"zombie\":1,\"descendant\":false}]}",
         ": \"zombie\" is neither true nor false"},
        {"{\"to\":1000001,\"engines\":[],\"missing\":[1]}", ":3:28: \"missing\" is no text"},
        {"{\"mark\":7,\"time\":1}", ":3:2: \"mark\" is no text"},
        {"{\"mark\":\"x\"}", ":3:1: \"time\" is missing"},
        {"{\"outcome\":{\"verdict\":\"fine\"}}", ":3:13: \"verdict\" is none of clean, spoiled, cannot tell"},
        {"{\"outcome\":{\"verdict\":\"clean\",\"believedPercentile\":100.5,\"cpuSeconds\":1}}",
         "\"believedPercentile\" is out of its range"},
        {"{\"mark\":\"\xff\",\"time\":1}", ":3:10: Invalid encoding in string."},
    };
    for (const auto& row : rows) {
        dir.writeFile("bad", headerText() + first + row.line + "\n");
        EXPECT_THAT(failureOf(dir / "bad"), AllOf(HasSubstr("/bad:3:"), HasSubstr(row.error))) << row.line;
    }
    dir.writeFile("good", headerText() + first);
    EXPECT_EQ(failureOf(dir / "good"), "");
}

TEST(DamagedRecording, WithoutAHeaderOfItsKindIsRefused) {
    const TempDir dir;
    const std::string header = headerText();
    const auto with = [&header](const std::string& old, const std::string& text) {
        std::string changed = header;
        return changed.replace(changed.find(old), old.size(), text);
    };
    const struct {
        std::string text;
        const char* error;
    } rows[] = {
        {"{}\n", ":1:1: this is no recording; 'pmenv judge --record FILE' writes one"},
        {"time,latency\n", ":1:2: Invalid value."},
        {with("pmenv recording", "recording"), ":1:1: this is no recording"},
        {with("[1,0]", "[2,0]"),
         ":1:29: this recording has format 2.0, and this pmenv reads formats up to 1; use the "
         "pmenv that wrote it (1.0.0) or a later one"},
        {with("[1,0]", "[1]"), ":1:29: \"version\" needs two numbers"},
        {with("[1,0]", "1"), ":1:29: \"version\" is no list"},
        {with("\"percentile\":99.0", "\"percentile\":100.5"), "\"percentile\" is out of its range"},
        {with("\"percentile\":99.0", "\"percentile\":-0.5"), "\"percentile\" is out of its range"},
        {with("\"percentile\":99.0", "\"percentile\":\"99\""), "\"percentile\" is out of its range"},
        {with("\"processors\":2", "\"processors\":0"), "\"processors\" needs whole numbers from 1 to"},
        {with("\"start\":1795309824123456", "\"start\":4000000000000001"), "\"start\" needs whole numbers from 0 to"},
        {with("\"memoryPercent\":null", "\"memoryPercent\":100.5"), "\"memoryPercent\" is out of its range"},
        {with("\"host\":\"gen1\",", ""), ":1:1: \"host\" is missing"},
    };
    for (const auto& row : rows) {
        dir.writeFile("bad", row.text);
        EXPECT_THAT(failureOf(dir / "bad"), HasSubstr(row.error)) << row.text;
    }
}

// However it is written, a number is the nearest one that a double holds.
TEST(Recording, ReadsNumbersExactly) {
    const TempDir dir;
    const std::string header = headerText();
    const std::string before = "\"percentile\":", written = before + "99.0";
    const std::size_t at = header.find(written);
    ASSERT_NE(at, std::string::npos);
    const struct {
        const char* text;
        double number;
    } rows[] = {
        {"0", 0},
        {"-0", 0},
        {"0e-99", 0},
        {"0.0e99", 0},
        {"0.00000000000000000000000000000000000000", 0},
        {"0.0000000000e-2147483639", 0},
        {"0.1", 0.1},
        {"99.999999999999986", 99.999999999999986},
        {"5e-324", 5e-324},
        {"2.2250738585072011e-308", 2.2250738585072011e-308},
        {"0.00000000000000000000000000000000000000000000000099e50", 99},
        {"9900000000000000000000e-20", 99},
    };
    for (const auto& row : rows) {
        std::string changed = header;
        dir.writeFile("run", changed.replace(at, written.size(), before + row.text));
        EXPECT_EQ(RecordingReader(dir / "run").header().limits.percentile, row.number) << row.text;
    }
}

TEST(DamagedRecording, WithDeepNestingIsRefused) {
    const TempDir dir;
    dir.writeFile("deep", headerText() + std::string(1'000'000, '[') + "\n");
    EXPECT_THAT(failureOf(dir / "deep"), EndsWith("/deep:2:33: this is nested too deeply"));
    dir.writeFile("text",
                  headerText() + R"({"mark":"\"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[","time":1})" + "\n");
    EXPECT_EQ(failureOf(dir / "text"), "");
}

TEST(DamagedRecording, OnlyOpenBracketsOutsideOfTextsAreNested) {
    const TempDir dir;
    const std::string opening(40, '['), closing(40, ']');
    std::string flat;
    for (int i = 0; i < 40; ++i) flat += "[],{},";
    const std::string accepted[] = {
        R"({"time":1,"mark":"x","new":[)" + flat + "0]}", R"({"time":1,"mark":")" + opening + R"("})",
        R"({"time":1,"mark":"\\\")" + opening + R"("})", R"({"time":1,"mark":"\\","new":")" + opening + R"("})"};
    for (const std::string& line : accepted) {
        dir.writeFile("run", headerText() + line + "\n");
        EXPECT_EQ(failureOf(dir / "run"), "") << line;
    }
    const std::string begins[] = {R"({"mark":"x","new":)", R"({"mark":"xy","new":)",
                                  R"({"mark":")" + closing + R"(","new":)", R"({"mark":"\\","new":)",
                                  R"({"mark":"\\\"","new":)"};
    for (const std::string& begin : begins) {
        dir.writeFile("run", headerText() + begin + opening + "\n");
        EXPECT_THAT(failureOf(dir / "run"),
                    EndsWith("/run:2:" + std::to_string(begin.size() + 32) + ": this is nested too deeply"))
            << begin;
    }
}

TEST(DamagedRecording, WithAnEngineThatWasForgottenIsRefused) {
    const TempDir dir;
    dir.writeFile("run", headerText() + R"({"to":1,"engines":[[0,null,{"pid":1,"start":2,"name":"e"}],)"
                                        R"([1,null,{"pid":3,"start":2,"name":"e"}]]})"
                                        "\n"
                                        R"({"to":2,"engines":[[1,null]]})"
                                        "\n"
                                        R"({"to":3,"engines":[[1,null]]})"
                                        "\n"
                                        R"({"to":4,"engines":[[0,null]]})"
                                        "\n");
    EXPECT_THAT(failureOf(dir / "run"), HasSubstr("/run:5:9: \"engines\": engine 0 has not been introduced"));
}

// What says nothing of the place, as a member whose name is written in another way, stands for the line.
TEST(DamagedRecording, IsRefusedAtTheBeginningOfTheLineWhereThePlaceIsNotKnown) {
    const TempDir dir;
    for (const char* line : {R"({"to":1000001,"new":""})", R"({"t\u006f":-1,"engines":[]})"}) {
        dir.writeFile("run", headerText() + line + "\n");
        EXPECT_THAT(failureOf(dir / "run"), HasSubstr("/run:2:1: ")) << line;
    }
}

TEST(CutRecording, TellsUpToWhichSecondItGoes) {
    const TempDir dir;
    record(dir / "none", {}, someHeader(), false);
    EXPECT_THAT(readRecording(dir / "none").warnings, ElementsAre(HasSubstr(" breaks off at second 0;")));
    record(dir / "run", smallRun(), someHeader(), false);
    EXPECT_THAT(readRecording(dir / "run").warnings, ElementsAre(HasSubstr(" breaks off at second 3;")));
}

TEST(DamagedRecording, WithALineThatNeverEndsIsRefused) {
    const TempDir dir;
    dir.writeFile("long", headerText() + std::string(6'000'000, ' '));
    EXPECT_THAT(failureOf(dir / "long"), HasSubstr("/long:2:4194304: the line is longer than any of a recording"));
}

std::string markLineOf(std::size_t length) {
    const std::string begin = R"({"time":1,"mark":")";
    return begin + std::string(length - begin.size() - 3, 'x') + "\"}\n";
}

TEST(Recording, HasLinesOfUpToFourMebibytes) {
    const TempDir dir;
    dir.writeFile("run", headerText() + markLineOf(4'000'000) + markLineOf(100) + markLineOf(100'000));
    EXPECT_EQ(readRecording(dir / "run").marks.size(), 3U);
    std::string header = headerText();
    header.insert(1, R"("new":")" + std::string(4 * 1024 * 1024 + 1 - 9 - header.size(), 'x') + "\",");
    ASSERT_EQ(header.size(), 4 * 1024 * 1024 + 1U) << "with its end";
    dir.writeFile("run", header);
    EXPECT_EQ(failureOf(dir / "run"), "");
}

// The file is read in pieces of this size.
TEST(Recording, MayEndAnywhereInWhatIsReadAtOnce) {
    const TempDir dir;
    constexpr std::size_t kPiece = 256 * 1024;
    for (const std::size_t size : {kPiece - 1, kPiece, kPiece + 1}) {
        dir.writeFile("run", headerText() + markLineOf(size - headerText().size()));
        EXPECT_EQ(readRecording(dir / "run").marks.size(), 1U) << size;
    }
}

int freeDescriptor() {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(descriptor);
    return descriptor;
}

TEST(Recording, IsClosedWhenItWasRead) {
    const TempDir dir;
    record(dir / "run", smallRun());
    const int before = freeDescriptor();
    readRecording(dir / "run");
    EXPECT_EQ(freeDescriptor(), before);
}

[[noreturn]] void readWithoutInput(const std::string& path) {
    close(STDIN_FILENO);
    const std::string failure = failureOf(path);
    std::fputs(failure.c_str(), stderr);
    _exit(failure.empty() ? 0 : 1);
}

TEST(Recording, IsReadByAProgramWithoutStandardInput) {
    const TempDir dir;
    record(dir / "run", smallRun());
    EXPECT_EXIT(readWithoutInput(dir / "run"), testing::ExitedWithCode(0), "^$");
}

// --- of later versions ----------------------------------------------------------------------------------------------

TEST(LaterRecording, HasFieldsAndLinesThatAreIgnored) {
    const TempDir dir;
    std::string header = headerText();
    header.replace(header.find("[1,0]"), 5, "[1,7]").insert(1, "\"new\":[{}],");
    dir.writeFile("run", header + R"({"to":1000000,"new":7,"machine":{"new":{}},"engines":[[0,0,5,1,0,0,0,0,0,0,99,)"
                                  R"({"pid":1,"start":2,"name":"e","tid":3,"thread":"t","new":null}]]})"
                                  "\n"
                                  R"({"news":{"to":"x"}})"
                                  "\n"
                                  R"({"outcome":{"verdict":"clean","believedPercentile":null,"cpuSeconds":1,"new":1}})"
                                  "\n");
    const ReadRecording read = readRecording(dir / "run");
    EXPECT_EQ(read.header.minor, 7);
    ASSERT_EQ(read.run.size(), 1U);
    ASSERT_EQ(read.run[0].engines.size(), 1U);
    EXPECT_EQ(read.run[0].engines[0].ran, 5e-6);
    EXPECT_TRUE(read.outcome);
}

// --- no files to read -----------------------------------------------------------------------------------------------

TEST(Recording, ThatCannotBeReadIsTold) {
    const TempDir dir;
    EXPECT_THAT(failureOf(dir / "none"), EndsWith("/none: No such file or directory"));
    EXPECT_THAT(failureOf(dir.path()), EndsWith(": Is a directory"));
    dir.writeFile("secret", headerText());
    chmod((dir / "secret").c_str(), 0);
    if (geteuid() == 0) return;  // who may read everything
    EXPECT_THAT(failureOf(dir / "secret"), EndsWith("/secret: Permission denied"));
}

}  // namespace
