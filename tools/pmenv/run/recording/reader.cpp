#include "failure.h"
#include "recording/decoder.h"
#include "recording/jsonLine.h"
#include "recording/lines.h"
#include "recording/recording.h"
#include "units.h"

using recording::BadLine;
using recording::Value;

namespace {

std::size_t columnOf(const BadLine& bad, std::string_view line) {
    if (bad.column > 0) return bad.column;
    const std::size_t found = line.find("\"" + bad.member + "\"");
    return found == std::string_view::npos ? 1 : found + 1;
}

}  // namespace

class RecordingReader::Implementation {
public:
    explicit Implementation(const std::string& path) : path_(path), lines_(path) {
        header_ =
            eachLine([](const Value& line) { return std::optional(decodeHeader(line)); }).value_or(RecordingHeader());
        if (lines_.number() == 0) fail(1, lines_.cut() ? "the first line is cut off" : "the file is empty");
        decoder_.emplace(header_.processors);
    }

    const RecordingHeader& header() const { return header_; }
    const std::optional<RecordedOutcome>& outcome() const { return outcome_; }
    const std::vector<std::string>& warnings() const { return warnings_; }

    std::optional<RecordedItem> next() {
        auto item = eachLine([this](const Value& line) { return itemOf(line); });
        if (!item && warnings_.empty()) addWarnings();
        return item;
    }

private:
    // What `decode` makes of the next line that it can make something of.
    template <class Decode>
    auto eachLine(Decode decode) -> decltype(decode(Value())) {
        std::optional<std::string_view> line;
        try {
            while ((line = lines_.next())) {
                if (auto decoded = decode(json_.parse(*line))) return decoded;
            }
        } catch (const BadLine& bad) {
            fail(columnOf(bad, line.value_or("")), bad.what);
        }
        return std::nullopt;
    }

    // Lines of other kinds are not for this reader.
    std::optional<RecordedItem> itemOf(const Value& line) {
        if (recording::find(line, "to") != nullptr) {
            Evidence evidence = decoder_->decode(line);
            end_ = evidence.to;
            return evidence;
        }
        if (recording::find(line, "mark") != nullptr) return decodeMark(line);
        if (recording::find(line, "outcome") != nullptr) outcome_ = decodeOutcome(line);
        return std::nullopt;
    }

    void addWarnings() {
        if (outcome_ && !lines_.cut()) return;
        warnings_.push_back(path_ + ": the recording breaks off at second " + std::to_string(static_cast<long>(end_)) +
                            (lines_.cut() ? ", its last line is cut off" : "") +
                            "; what the watch saw afterwards is not in it");
    }

    [[noreturn]] void fail(std::size_t column, const std::string& what) const {
        throw Failure(path_ + ":" + std::to_string(std::max<std::size_t>(lines_.number(), 1)) + ":" +
                      std::to_string(column) + ": " + what);
    }

    std::string path_;
    recording::Lines lines_;
    recording::JsonLine json_;
    RecordingHeader header_;
    std::optional<EvidenceDecoder> decoder_;
    double end_ = 0;  // of the last interval
    std::optional<RecordedOutcome> outcome_;
    std::vector<std::string> warnings_;
};

RecordingReader::RecordingReader(const std::string& path) : implementation_(std::make_unique<Implementation>(path)) {}
RecordingReader::~RecordingReader() = default;
const RecordingHeader& RecordingReader::header() const { return implementation_->header(); }
std::optional<RecordedItem> RecordingReader::next() { return implementation_->next(); }
const std::optional<RecordedOutcome>& RecordingReader::outcome() const { return implementation_->outcome(); }
const std::vector<std::string>& RecordingReader::warnings() const { return implementation_->warnings(); }
