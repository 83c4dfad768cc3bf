// Reads any file as known keys, which may be refused but must end. Drafts known keys from any settings file: the draft
// can be read, and has nothing to say against the file that it came from.
#include <string>
#include <string_view>

#include "check/check.h"
#include "check/keysDraft.h"
#include "failure.h"
#include "fuzzing.h"
#include "knownKeys/knownKeys.h"

namespace {

void readAny(const std::string& path) {
    try {
        const KnownKeys keys = readKnownKeys(path);
        for (const KnownKey& key : keys.all()) {
            require(!key.name.empty(), "a key has a name");
            require(!key.helpText().empty(), "a key can be described");
            require(key.values.empty() || typeProblem(key, key.values.front()).empty(), "a choice takes its values");
        }
    } catch (const Failure& failure) {
        require(std::string_view(failure.what()).find("known keys") != std::string_view::npos, "the reason is given");
    }
}

void requireNoComplaint(const CheckedFile& checked) {
    for (const CheckFinding& finding : checked.findings) {
        if (finding.rule->needs != Rule::Needs::KnownKeys) continue;
        // A name with ']' cannot be described.
        require(checked.sourceOf(finding).find(']') != std::string::npos, finding.text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hushLog();
    static MemoryFile settings;
    static MemoryFile drafted;
    settings.fill(textOf(data, size));
    readAny(settings.path());

    KeysDraft draft;
    draft.add(settings.path(), "settings");
    drafted.fill(draft.text());
    const KnownKeys keys = readKnownKeys(drafted.path());
    requireNoComplaint(checkFile({settings.path(), "", "", {}, &keys}));
    return 0;
}
