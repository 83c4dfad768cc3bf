// pmenv report: the start-up report of this host.
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    for (const std::size_t line : {0, 8, 10}) EXPECT_EQ(lines[line], banner);
    EXPECT_THAT(lines[1], StartsWith("Machine Name "));
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
    EXPECT_THAT(facts.at("bits"), AnyOf("64 bit OS", "32 bit OS"));
    EXPECT_THAT(facts.at("operatingSystem").get<std::string>(), StartsWith("Linux (Linux "));
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

TEST_F(PmenvReport, PmLogDoesNotHideIt) {
    directory_.writeFile("pressmark.ini", "KR_VERSION = 12\n");
    EXPECT_EQ(linesOf(run({"report", "--ini", directory_.path()}, {{"PM_LOG", "none"}}).out).size(), 11u);
}

}  // namespace
