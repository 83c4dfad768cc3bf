// pmenv report: the start-up report of this host.
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

double bytesOfMemory() {
    for (const std::string& line : linesOf(readFileText("/proc/meminfo"))) {
        if (line.compare(0, 9, "MemTotal:") == 0) return std::stod(line.substr(9)) * 1024;
    }
    return -1;
}

std::string hostName() {
    char name[256] = {};
    EXPECT_EQ(gethostname(name, sizeof name - 1), 0);
    return name;
}

class PmenvReport : public Pmenv {
protected:
    ProgramResult report(const Words& words = {}) const {
        Words all{"report", "--ini", directory_.path()};
        all.insert(all.end(), words.begin(), words.end());
        return run(all);
    }
};

TEST_F(PmenvReport, PrintsTheElevenLines) {
    directory_.writeFile("pressmark.ini", "KR_VERSION = 12\nKR_BUILD = 345\n");
    const ProgramResult outcome = report();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    const auto lines = linesOf(outcome.out);
    ASSERT_EQ(lines.size(), 11u);
    const std::string banner = "/" + std::string(72, '*') + "/";
    for (const std::size_t line : {0U, 8U, 10U}) EXPECT_EQ(lines[line], banner);
    EXPECT_EQ(lines[1], "Machine Name " + hostName());
    EXPECT_THAT(lines[2], StartsWith("Machine IP: "));
    EXPECT_THAT(lines[3], StartsWith("Operating System:  Linux (Linux "));
    EXPECT_THAT(lines[4], StartsWith("CPU: "));
    EXPECT_EQ(lines[5], "Memory size: " + std::to_string(static_cast<unsigned long long>(bytesOfMemory())));
    EXPECT_THAT(lines[6], AnyOf("Bits: 64 bit OS", "Bits: 32 bit OS"));
    EXPECT_EQ(lines[7], "Pressmark Release 12.345");
    EXPECT_EQ(lines[9], "KR_VERSION\t12\tKR_BUILD\t345\t");
}

TEST_F(PmenvReport, JsonNamesTheFacts) {
    directory_.writeFile("pressmark.ini", "KR_VERSION = 12\n");
    const json facts = json::parse(report({"--json"}).out);
    EXPECT_EQ(facts.at("version"), "12");
    EXPECT_EQ(facts.at("build"), nullptr);
    EXPECT_EQ(facts.at("memoryBytes").get<double>(), bytesOfMemory());
    EXPECT_EQ(facts.at("machineName"), hostName());
}

TEST_F(PmenvReport, JsonHasTheTextOfEachLine) {
    directory_.writeFile("pressmark.ini", "KR_BUILD = 345\n");
    const json facts = json::parse(report({"--json"}).out);
    const auto lines = linesOf(report().out);
    ASSERT_EQ(lines.size(), 11u);
    const auto text = [&facts](const char* name) {
        return facts.at(name).is_null() ? "<NullChar*>" : facts.at(name).get<std::string>();
    };
    EXPECT_EQ(lines[1], "Machine Name " + text("machineName"));
    EXPECT_EQ(lines[2], "Machine IP: " + text("addresses"));
    EXPECT_EQ(lines[3], "Operating System:  " + text("operatingSystem"));
    EXPECT_EQ(lines[4], "CPU: " + text("cpu"));
    EXPECT_EQ(lines[6], "Bits: " + text("bits"));
    EXPECT_EQ(lines[9], "KR_VERSION\t" + text("version") + "\tKR_BUILD\t" + text("build") + "\t");
    EXPECT_TRUE(facts.at("version").is_null());
    EXPECT_EQ(facts.at("build"), "345");
}

TEST_F(PmenvReport, ReadsTheFileThatTheOtherCommandsRead) {
    directory_.writeFile("pressmark.ini", "KR_VERSION = 12\n");
    EXPECT_EQ(linesOf(run({"report", "--ini", "pressmark.ini"}).out).size(), 11u) << "in the working directory";
    EXPECT_EQ(linesOf(run({"report", "--ini", ini()}).out).size(), 11u);
    directory_.makeDirectory("a");
    directory_.writeFile("a/pressmark.ini", "KR_VERSION = 13\n");
    const ProgramResult below = run({"report", "--json", "--ini", "a/pressmark.ini"});
    EXPECT_EQ(json::parse(below.out).at("version"), "13");
    const ProgramResult found = run({"report", "--json"}, {{"HOME", directory_.path()}});
    EXPECT_EQ(json::parse(found.out).at("version"), "12") << "of the file that is found";
}

TEST_F(PmenvReport, NeedsASettingsFile) {
    std::filesystem::remove(ini());
    const ProgramResult missing = report();
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_THAT(missing.err, StartsWith("pmenv: cannot load the settings: " + directory_.path() + "/pressmark.ini: "));

    directory_.writeFile("pressmark.ini", "nonsense\n");
    EXPECT_THAT(report().err, HasSubstr("/pressmark.ini:1:1: missing '='"));

    const ProgramResult searched = run({"report"});
    EXPECT_EQ(searched.status, 1);
    EXPECT_THAT(searched.err, StartsWith("pmenv: pressmark.ini not found; looked in\n"));

    directory_.writeFile("other.ini", "A = 1\n");
    const ProgramResult named = run({"report", "--ini", directory_ / "other.ini"});
    EXPECT_EQ(named.status, 2);
    EXPECT_EQ(named.err, "pmenv: report reads a file named pressmark.ini, not other.ini\n");
}

// What stands for it begins like the secret.
TEST_F(PmenvReport, HidesASecretOfTheReleaseOnEachLine) {
    directory_.writeFile("p.keys", "[PIN]\nsecret = yes\n");
    directory_.writeFile("pressmark.ini", "PMENV_KEYS = p.keys\nPIN = (hid\nKR_VERSION = 12\nKR_BUILD = #(PIN)\n");
    const auto lines = linesOf(report().out);
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[7], "Pressmark Release 12.(hidden)");
    EXPECT_EQ(lines[9], "KR_VERSION\t12\tKR_BUILD\t(hidden)\t");
}

TEST_F(PmenvReport, PmLogDoesNotHideIt) {
    directory_.writeFile("pressmark.ini", "KR_VERSION = 12\n");
    EXPECT_EQ(linesOf(run({"report", "--ini", directory_.path()}, {{"PM_LOG", "none"}}).out).size(), 11u);
}

}  // namespace
