// pmenv's own JSON: an object for each file.
#include "check/findings.h"
#include "check/formats/formats.h"
#include "output.h"

namespace {

class JsonWriter final : public FindingsWriter {
public:
    void add(const CheckedFile& checked) override {
        Json json{{"file", checked.file}, {"findings", Json::array()}};
        for (const CheckFinding& finding : checked.findings) json["findings"].push_back(findingJson(checked, finding));
        files_.push_back(std::move(json));
    }
    void addUnreadable(const std::string& file, const std::string& problem) override {
        files_.push_back({{"file", file}, {"problem", problem}});
    }
    void finish() override { printJson(files_); }

private:
    Json files_ = Json::array();
};

}  // namespace

std::unique_ptr<FindingsWriter> jsonWriter() { return std::make_unique<JsonWriter>(); }
