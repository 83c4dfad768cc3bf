// SARIF 2.1.0, which code hosts and editors import. Columns are counted in UTF-16 code units, as columnKind says.
#include <cctype>
#include <string_view>

#include "check/findings.h"
#include "check/formats/codeUnits.h"
#include "check/formats/formats.h"
#include "output.h"

namespace {

// --- the rules ------------------------------------------------------------------------------------------------------

std::string firstSentence(const std::string& paragraph) { return paragraph.substr(0, paragraph.find(". ")); }

const char* levelOf(const Rule& rule) { return rule.isError() ? "error" : "warning"; }

Json messageJson(const std::string& text) { return {{"text", text}}; }

Json descriptorOf(const Rule& rule) {
    Json json{{"id", rule.name}};
    json["shortDescription"] = messageJson(firstSentence(rule.description));
    json["fullDescription"] = messageJson(rule.description);
    json["help"] = messageJson(ruleText(rule, Style(-1)));
    json["defaultConfiguration"] = {{"level", levelOf(rule)}};
    return json;
}

// --- places ---------------------------------------------------------------------------------------------------------

std::string percentEncoded(std::string_view path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const char character : path) {
        const auto byte = static_cast<unsigned char>(character);
        const bool isPlain =
            byte < 0x80 && (std::isalnum(byte) || std::string_view("/-._~").find(character) != std::string_view::npos);
        if (isPlain) {
            text += character;
        } else {
            text.append("%").append(1, kDigits[byte / 16]).append(1, kDigits[byte % 16]);
        }
    }
    return text;
}

// A relative path stays relative, so that a code host finds the file in its working tree.
std::string uriOf(const std::string& file) {
    if (file.compare(0, 1, "/") == 0) return "file://" + percentEncoded(file);
    return percentEncoded(file.compare(0, 2, "./") == 0 ? file.substr(2) : file);
}

Json artifactJson(const std::string& file) { return {{"artifactLocation", {{"uri", uriOf(file)}}}}; }

// --- the log --------------------------------------------------------------------------------------------------------

class SarifWriter final : public FindingsWriter {
public:
    void add(const CheckedFile& checked) override {
        for (const CheckFinding& finding : checked.findings) results_.push_back(resultOf(checked, finding));
    }
    void addUnreadable(const std::string& file, const std::string& problem) override {
        Json notification{{"level", "error"}, {"message", messageJson(problem)}};
        notification["locations"] = Json::array({{{"physicalLocation", artifactJson(file)}}});
        notifications_.push_back(std::move(notification));
    }
    void finish() override;

private:
    Json resultOf(const CheckedFile& checked, const CheckFinding& finding) {
        const UnitColumns columns = units_.columnsOf(checked, finding);
        Json place = artifactJson(checked.file);
        place["region"] = {{"startLine", finding.line}, {"startColumn", columns.begin}, {"endColumn", columns.end}};
        return {{"ruleId", finding.rule->name},
                {"ruleIndex", finding.rule - allRules().data()},
                {"level", levelOf(*finding.rule)},
                {"message", messageJson(finding.text)},
                {"locations", Json::array({{{"physicalLocation", std::move(place)}}})}};
    }

    CodeUnits units_;
    Json results_ = Json::array();
    Json notifications_ = Json::array();
};

void SarifWriter::finish() {
    Json driver{{"name", "pmenv"}, {"version", PMENV_VERSION}, {"rules", Json::array()}};
    for (const Rule& rule : allRules()) driver["rules"].push_back(descriptorOf(rule));
    Json invocation{{"executionSuccessful", notifications_.empty()}};
    invocation["toolExecutionNotifications"] = std::move(notifications_);
    Json run{{"tool", {{"driver", std::move(driver)}}}, {"columnKind", "utf16CodeUnits"}};
    run["invocations"] = Json::array({std::move(invocation)});
    run["results"] = std::move(results_);
    Json log{{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"}, {"version", "2.1.0"}};
    log["runs"] = Json::array({std::move(run)});
    printJson(log);
}

}  // namespace

std::unique_ptr<FindingsWriter> sarifWriter() { return std::make_unique<SarifWriter>(); }
