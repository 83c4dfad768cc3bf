// pmenv check --format: what other programs read.
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/formats/codeUnits.h"
#include "check/rule.h"
#include "pmenv/PmenvTest.h"
#include "support/repeated.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class PmenvCheckFormat : public Pmenv {
protected:
    ProgramResult run(Words words) const {
        words.insert(words.begin(), "check");
        return Pmenv::run(words);
    }
    json sarif(const Words& files) const {
        Words words{"--format", "sarif"};
        words.insert(words.end(), files.begin(), files.end());
        return json::parse(run(words).out);
    }
    json resultsOf(const std::string& text) const {
        directory_.writeFile("a.ini", text);
        return sarif({"a.ini"}).at("runs").at(0).at("results");
    }
};

json regionOf(const json& result) { return result.at("locations").at(0).at("physicalLocation").at("region"); }
std::string uriOf(const json& result) {
    return result.at("locations").at(0).at("physicalLocation").at("artifactLocation").at("uri");
}

// --- SARIF ----------------------------------------------------------------------------------------------------------

TEST_F(PmenvCheckFormat, SarifHasWhatItsReadersRequire) {
    directory_.writeFile("a.ini", "A = 1\nA = #(B)\n");
    const ProgramResult result = run({"a.ini", "--format", "sarif"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.err);
    const json log = json::parse(result.out);
    EXPECT_EQ("2.1.0", log.at("version"));
    EXPECT_THAT(std::string(log.at("$schema")), HasSubstr("sarif-2.1.0"));
    ASSERT_EQ(1U, log.at("runs").size());
    const json& run = log["runs"][0];
    EXPECT_EQ("utf16CodeUnits", run.at("columnKind"));
    EXPECT_EQ(true, run.at("invocations").at(0).at("executionSuccessful"));
    const json& driver = run.at("tool").at("driver");
    EXPECT_EQ("pmenv", driver.at("name"));
    EXPECT_THAT(std::string(driver.at("version")), MatchesRegex("[0-9]+[.][0-9]+[.][0-9]+"));

    ASSERT_EQ(2U, run.at("results").size());
    const json& first = run["results"][0];
    EXPECT_EQ("duplicate-key", first.at("ruleId"));
    EXPECT_EQ("warning", first.at("level"));
    EXPECT_EQ("'A' is set again; its value from line 1 is lost", first.at("message").at("text"));
    EXPECT_EQ("a.ini", uriOf(first));
    EXPECT_EQ((json{{"startLine", 2}, {"startColumn", 1}, {"endColumn", 2}}), regionOf(first));
    EXPECT_EQ("error", run["results"][1].at("level"));
    for (const json& each : run["results"]) {
        EXPECT_EQ(each.at("ruleId"), driver.at("rules").at(each.at("ruleIndex").get<std::size_t>()).at("id"));
    }
}

TEST_F(PmenvCheckFormat, SarifDescribesEachRule) {
    directory_.writeFile("a.ini");
    const json rules = sarif({"a.ini"}).at("runs").at(0).at("tool").at("driver").at("rules");
    ASSERT_EQ(allRules().size(), rules.size());
    for (std::size_t i = 0; i < rules.size(); ++i) {
        const Rule& rule = allRules()[i];
        EXPECT_EQ(rule.name, rules[i].at("id"));
        EXPECT_EQ(rule.description, rules[i].at("fullDescription").at("text"));
        EXPECT_EQ(rule.isError() ? "error" : "warning", rules[i].at("defaultConfiguration").at("level"));
        const std::string shortText = rules[i].at("shortDescription").at("text");
        EXPECT_EQ(0U, std::string(rule.description).find(shortText)) << shortText;
        EXPECT_THAT(shortText, testing::Not(HasSubstr(". ")));
        std::string help = std::regex_replace(std::string(rules[i].at("help").at("text")), std::regex("\\s+"), " ");
        EXPECT_THAT(help, HasSubstr(std::string(rule.description) + " " + rule.repair)) << rule.name;
        EXPECT_EQ(rule.example != nullptr, help.find(" instead of ") != std::string::npos) << rule.name;
    }
}

// "ä" is two bytes and one unit, "𝄞" four bytes and two units, a byte that is no character one of each.
TEST_F(PmenvCheckFormat, SarifCountsColumnsInUtf16CodeUnits) {
    const json results = resultsOf("A = ä𝄞\xff#(B)\nC = #(ä𝄞) \xc3#(D)\n");
    ASSERT_EQ(3U, results.size());
    EXPECT_EQ((json{{"startLine", 1}, {"startColumn", 9}, {"endColumn", 13}}), regionOf(results[0]));
    EXPECT_EQ((json{{"startLine", 2}, {"startColumn", 5}, {"endColumn", 11}}), regionOf(results[1]));
    EXPECT_EQ((json{{"startLine", 2}, {"startColumn", 13}, {"endColumn", 17}}), regionOf(results[2]));
}

TEST_F(PmenvCheckFormat, SarifPlacesWhatHasNoTextInTheLine) {
    directory_.writeFile("pressmark.ini", "");
    const json results = sarif({"pressmark.ini"}).at("runs").at(0).at("results");
    ASSERT_EQ(2U, results.size());
    EXPECT_EQ((json{{"startLine", 1}, {"startColumn", 1}, {"endColumn", 1}}), regionOf(results[0]));
}

TEST_F(PmenvCheckFormat, SarifNamesFilesByUris) {
    const std::string odd = "a b%:#ä,'.ini";
    directory_.writeFile(odd, "no\n");
    const auto uri = [&](const std::string& file) { return uriOf(sarif({file}).at("runs").at(0).at("results").at(0)); };
    EXPECT_EQ("a%20b%25%3A%23%C3%A4%2C%27.ini", uri(odd));
    EXPECT_EQ("a%20b%25%3A%23%C3%A4%2C%27.ini", uri("./" + odd));
    EXPECT_EQ("file://" + directory_.path() + "/a%20b%25%3A%23%C3%A4%2C%27.ini", uri(directory_ / odd));
}

TEST_F(PmenvCheckFormat, SarifTellsWhatCouldNotBeRead) {
    directory_.writeFile("a.ini", "no\n");
    const json run = sarif({"none.ini", "a.ini"}).at("runs").at(0);
    const json& invocation = run.at("invocations").at(0);
    EXPECT_EQ(false, invocation.at("executionSuccessful"));
    const json& notification = invocation.at("toolExecutionNotifications").at(0);
    EXPECT_EQ("error", notification.at("level"));
    EXPECT_THAT(std::string(notification.at("message").at("text")), HasSubstr("none.ini: cannot open the file"));
    EXPECT_EQ("none.ini", uriOf(notification));
    EXPECT_EQ(1U, run.at("results").size());
}

// --- GitHub ---------------------------------------------------------------------------------------------------------

TEST_F(PmenvCheckFormat, GithubHasACommandForEachFinding) {
    directory_.writeFile("a.ini", "A = 1\nA = ä#(100%)\n");
    const ProgramResult result = run({"a.ini", "none.ini", "--format", "github"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(
        "::warning file=a.ini,line=2,col=1,endColumn=2,title=duplicate-key::'A' is set again; its value from line 1 is "
        "lost\n"
        "::error file=a.ini,line=2,col=6,endColumn=13,title=undefined-setting::the setting '100%25' is not defined\n"
        "::error file=none.ini::cannot check the settings: none.ini: cannot open the file: No such file or directory\n",
        result.out);
    EXPECT_THAT(result.err, HasSubstr("1 error, 1 warning, 1 file not read\n"));
}

TEST_F(PmenvCheckFormat, GithubEscapesWhatWouldEndAPropertyOrTheCommand) {
    const std::string odd = "50%,a:b\r\nc.ini";
    directory_.writeFile(odd, "A = #(X\vY)\n");
    const ProgramResult result = run({odd, "--format", "github"});
    EXPECT_THAT(result.out, testing::StartsWith("::error file=50%25%2Ca%3Ab%0D%0Ac.ini,line=1,"));
    EXPECT_THAT(result.out, HasSubstr("::the setting 'X\\x0bY' is not defined\n"));
}

TEST_F(PmenvCheckFormat, AllowedFindingsAreInNoFormatButCounted) {
    directory_.writeFile("a.ini", "A = 1\n; pmenv: allow duplicate-key\nA = 2\n");
    for (const char* const format : {"text", "github"}) {
        const ProgramResult result = run({"a.ini", "--strict", "--format", format});
        EXPECT_EQ("", result.out);
        EXPECT_EQ("0 errors, 0 warnings, 1 allowed\n", result.err);
        EXPECT_EQ(0, result.status);
    }
    EXPECT_THAT(sarif({"a.ini"}).at("runs").at(0).at("results"), IsEmpty());
    EXPECT_EQ(run({"a.ini", "--json"}).out, run({"a.ini", "--format", "json"}).out);
}

// --- code units -----------------------------------------------------------------------------------------------------

// Each place is counted from the one before, not from the beginning of the line.
TEST(CodeUnits, ManyFindingsOnALongLineTakeLinearTime) {
    constexpr std::size_t kFindings = 200'000;
    CheckedFile checked{"a.ini", {{1, repeated("äb", kFindings), 3 * kFindings, "", 0}}, {}, 0};
    CodeUnits units;
    for (std::size_t i = 0; i < kFindings; ++i) {
        const UnitColumns columns = units.columnsOf(checked, {nullptr, 1, 3 * i + 1, 2, ""});
        ASSERT_EQ(2 * i + 1, columns.begin);
        ASSERT_EQ(2 * i + 2, columns.end);
    }
    const UnitColumns again = units.columnsOf(checked, {nullptr, 1, 4, 3, ""});
    EXPECT_EQ(3U, again.begin);
    EXPECT_EQ(5U, again.end);
}

// --- the editors' example -------------------------------------------------------------------------------------------

// The pattern that the page about pmenv shows finds what stands in pmenv's text.
TEST_F(PmenvCheckFormat, TextIsWhatTheEditorsPatternExpects) {
    const std::string page = readFileText(PMENV_DOCS);
    const std::size_t begin = page.rfind("```json\n", page.find("problemMatcher"));
    ASSERT_NE(std::string::npos, begin);
    const std::size_t text = begin + std::string("```json\n").size();
    const json task = json::parse(page.substr(text, page.find("```", text) - text));
    const json pattern = task.at("tasks").at(0).at("problemMatcher").at("pattern");

    directory_.writeFile("a.ini", "A = 1\nA = 2\n");
    const std::string out = run({"a.ini"}).out;
    const std::string line = out.substr(0, out.find('\n'));
    std::smatch match;
    ASSERT_TRUE(std::regex_search(line, match, std::regex(std::string(pattern.at("regexp")))));
    const auto group = [&](const char* name) { return match[pattern.at(name).get<std::size_t>()].str(); };
    EXPECT_EQ("a.ini", group("file"));
    EXPECT_EQ("2", group("line"));
    EXPECT_EQ("1", group("column"));
    EXPECT_EQ("warning", group("severity"));
    EXPECT_EQ("'A' is set again; its value from line 1 is lost", group("message"));
    EXPECT_EQ("duplicate-key", group("code"));
}

}  // namespace
