#include "trial.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <regex>

#include "disturbance.h"
#include "engines.h"
#include "generators.h"

namespace {

using Json = nlohmann::json;

constexpr double kShortest = 5, kLongest = 6;  // seconds of a watch
constexpr double kSettle = 0.5;                // seconds from the start of the load to the watch

std::int64_t nanoseconds(double seconds) { return static_cast<std::int64_t>(seconds * 1e9); }

// --- drawing --------------------------------------------------------------------------------------------------------

// "80..160" is a whole number, "0.5..1" is not.
std::string drawn(const std::string& value, Random& random) {
    static const std::regex wholeRange(R"((\d+)\.\.(\d+))");
    static const std::regex range(R"((\d+\.?\d*?)\.\.(\d+\.?\d*))");
    std::smatch ends;
    if (std::regex_match(value, ends, wholeRange)) {
        return std::to_string(std::uniform_int_distribution<int>(std::stoi(ends[1]), std::stoi(ends[2]))(random));
    }
    if (!std::regex_match(value, ends, range)) return value;
    char text[32];
    const double number = std::uniform_real_distribution<double>(std::stod(ends[1]), std::stod(ends[2]))(random);
    std::snprintf(text, sizeof text, "%.3g", number);
    return text;
}

Words drawnWords(const std::string& text, Random& random) {
    Words words;
    const Words ranges(text);
    for (const auto& [name, value] : ranges.all()) words.set(name, drawn(value, random));
    return words;
}

std::string textOf(const Words& words) {
    std::string text;
    for (const auto& [name, value] : words.all()) text += (text.empty() ? "" : " ") + name + "=" + value;
    return text;
}

// --- judging --------------------------------------------------------------------------------------------------------

// pmenv, which watches while it exists.
class Judge {
public:
    Judge(double seconds, const std::string& options, const Scratch& memory)
        : out_(memory / "judge.json"), errors_(memory / "judge.errors"), recording_(memory / "judge.pmrec") {
        std::vector<std::string> arguments = {PMENV_BINARY, "judge",   "--json", "--duration", std::to_string(seconds),
                                              "--record",   recording_};
        std::istringstream words(options);
        for (std::string word; words >> word;) arguments.push_back(word);
        process_.emplace(arguments, Groups{}, Process::Output{out_, errors_});
    }

    Json judgement() {
        const Json told = toldBy(*process_);
        requireSameOfRecording(told);
        return told;
    }

private:
    Json toldBy(Process& process) const {
        const int status = process.wait();
        const Json told = Json::parse(readText(out_), nullptr, false);
        if (told.is_discarded() || told["exitCode"] != status) {
            throw std::runtime_error("pmenv judge ended with " + std::to_string(status) + ": " + readText(errors_));
        }
        return told;
    }

    // A recording of the run is judged as the run itself, to the last digit.
    void requireSameOfRecording(const Json& live) const {
        Process again({PMENV_BINARY, "judge", "--json", recording_}, Groups{}, Process::Output{out_, errors_});
        Json told = toldBy(again);
        told.erase("recording");
        if (told != live) throw std::runtime_error("the recording is judged differently: " + told.dump());
    }

    std::string out_, errors_, recording_;
    std::optional<Process> process_;
};

// "2026-11-21T05:33:55.084Z" on the clock that engines use.
std::int64_t monotonicNs(const std::string& utc) {
    std::tm parts{};
    const char* const rest = strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr) throw std::runtime_error(utc + ": no time");
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t wallNs = timegm(&parts) * kNsPerSecond + nanoseconds(std::strtod(rest, nullptr));
    return wallNs - (now.tv_sec * kNsPerSecond + now.tv_nsec) + nowNs();
}

Window windowOf(const Json& judgement) {
    const std::int64_t from = monotonicNs(judgement["start"]);
    return {from, from + nanoseconds(judgement["seconds"])};
}

// A generator runs for somewhat longer than it is watched.
std::unique_ptr<Load> makeLoad(const Words& words, int count, double seconds, const Groups& groups,
                               const Scratch& memory, const Scratch& disk) {
    if (!words.has("generator")) return std::make_unique<Engines>(count, words, groups, memory, disk);
    return std::make_unique<Generator>(words, words.number("settle", kSettle) + seconds + 2, groups, disk);
}

// --- the trial ------------------------------------------------------------------------------------------------------

void note(const Truth& truth, Json& row) {
    row["requests"] = truth.due;
    row["late"] = truth.share();
    row["lateBySecond"] = truth.lateBySecond;
    row["p50"] = truth.p50Ms;
    row["p99"] = truth.p99Ms;
}

// pmenv judges all load engines of a machine, so that others would spoil the comparison.
void requireOwn(const Json& judgement, const Load& engines) {
    for (const Json& engine : judgement["engines"]) {
        const int pid = engine["pid"];
        const auto isIt = [pid](const Process& process) { return process.pid() == pid; };
        const auto& own = engines.processes();
        if (std::none_of(own.begin(), own.end(), isIt)) {
            throw Disturbed("another load engine runs on this machine: " + std::to_string(pid));
        }
    }
}

void note(const Json& judgement, Json& row) {
    row["seconds"] = judgement["seconds"];
    row["verdict"] = judgement["verdict"];
    row["told"] = judgement["heldBackShare"];
    row["reason"] = judgement["reason"];
    row["watcher"] = judgement["watcher"];
}

}  // namespace

Json runTrial(const Situation& situation, Random& random) {
    const Words engine = drawnWords(situation.engine, random);
    const Words words = drawnWords(situation.disturbance, random);
    const double seconds = std::uniform_real_distribution<double>(kShortest, kLongest)(random);
    Json row = {{"situation", situation.name}, {"words", textOf(engine) + ", " + textOf(words)}, {"late", nullptr}};

    const Scratch memory("/dev/shm"), disk("/var/tmp");
    const Surroundings surroundings(words, disk / ".");
    const int count = situation.engine.empty() ? 0 : words.count("engines", 1);
    const auto load = makeLoad(engine, count, seconds, surroundings.groups(), memory, disk);

    std::optional<Disturbance> disturbance;
    const auto disturb = [&] { disturbance.emplace(words, surroundings, load->processes()); };
    if (!words.has("from")) disturb();
    waitUntil(nowNs() + nanoseconds(engine.number("settle", kSettle)));
    Judge judge(seconds, situation.options, memory);
    if (words.has("from")) {
        const std::int64_t from = nowNs() + nanoseconds(words.number("from"));
        waitUntil(from);
        disturb();
        waitUntil(from + nanoseconds(words.number("for")));
        disturbance.reset();
    }
    const Json judgement = judge.judgement();

    if (!engine.has("generator")) requireOwn(judgement, *load);
    note(judgement, row);
    if (count > 0) note(load->worst(windowOf(judgement)), row);
    row["grade"] = gradeOf(row);
    return row;
}

std::string gradeOf(const Json& row) {
    const Json& late = row["late"];
    const std::string verdict = row["verdict"];
    if (late.is_null()) return verdict == "cannot tell" ? "hit" : "miss";
    if (verdict == "cannot tell") return verdict;
    const bool spoiled = late > kSpoiled, told = verdict == "spoiled";
    if (spoiled == told) return "hit";
    const double margin = 2 * std::sqrt(kSpoiled * (1 - kSpoiled) / row["requests"].get<double>());
    const bool near = std::abs(late.get<double>() - kSpoiled) < margin && row["told"] < kSpoiled + margin;
    return near ? "near" : spoiled ? "miss" : "false alarm";
}
