#include "check/formats/formats.h"

#include <utility>

namespace {

using Maker = std::unique_ptr<FindingsWriter> (*)();

constexpr std::pair<const char*, Maker> kFormats[] = {
    {"text", textWriter}, {"json", jsonWriter}, {"sarif", sarifWriter}, {"github", githubWriter}};

}  // namespace

std::vector<std::string> formatNames() {
    std::vector<std::string> names;
    for (const auto& format : kFormats) names.emplace_back(format.first);
    return names;
}

std::unique_ptr<FindingsWriter> findingsWriter(const std::string& format) {
    for (const auto& [name, maker] : kFormats) {
        if (name == format) return maker();
    }
    return nullptr;
}
