#include "kernel/taskFiles.h"

#include <array>
#include <limits>

#include "kernel/numbers.h"

namespace kernel {

namespace {

constexpr std::size_t kFirst = 3;  // of the fields behind the name, as proc(5) numbers them
constexpr std::size_t kLast = 52;

// The fields behind the name, empty where there are no more; a few hold negative numbers, so they stay words until somebody
// asks.
class Fields {
public:
    explicit Fields(std::string_view text) {
        for (std::string_view& word : words_) word = takeWord(&text);
    }

    std::string_view word(std::size_t field) const { return words_[field - kFirst]; }
    std::optional<std::uint64_t> number(std::size_t field) const { return kernel::number(word(field)); }

private:
    std::array<std::string_view, kLast - kFirst + 1> words_;
};

std::optional<int> id(std::optional<std::uint64_t> value) {
    if (!value || *value > static_cast<std::uint64_t>(std::numeric_limits<int>::max())) return std::nullopt;
    return static_cast<int>(*value);
}

std::string_view withoutLineEnd(std::string_view text) { return takeLine(&text); }

}  // namespace

// "77 (a (b) c) S 1 77 ...": the name may hold blanks, parentheses and line ends, so it ends at the last ')'.
std::optional<TaskStat> parseTaskStat(std::string_view text) {
    const std::size_t open = text.find(" (");
    const std::size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open + 2) return std::nullopt;
    const Fields fields(withoutLineEnd(text.substr(close + 1)));
    if (fields.word(3).size() != 1) return std::nullopt;

    const auto ownId = id(number(text.substr(0, open)));
    const auto parent = id(fields.number(4));
    const auto majorFaults = fields.number(12), user = fields.number(14), system = fields.number(15);
    const auto threads = fields.number(20), start = fields.number(22);
    if (!ownId || !parent || !majorFaults || !user || !system || !threads || !start) return std::nullopt;

    TaskStat stat;
    stat.id = *ownId;
    stat.name = text.substr(open + 2, close - open - 2);
    stat.state = fields.word(3)[0];
    stat.parent = *parent;
    stat.majorFaults = *majorFaults;
    stat.ticks = *user + *system;
    stat.startTicks = *start;
    stat.threads = *threads;
    stat.blockedTicks = fields.number(42);
    stat.exitStatus = fields.number(52);
    return stat;
}

// "2569 1281 1180 210 0 343 0": size, resident, shared, ..., in pages
std::optional<std::uint64_t> parseResidentBytes(std::string_view text, std::uint64_t pageSize) {
    std::string_view line = takeLine(&text);
    const auto size = number(takeWord(&line)), resident = number(takeWord(&line));
    if (!size || !resident || *resident > std::numeric_limits<std::uint64_t>::max() / pageSize) return std::nullopt;
    return *resident * pageSize;
}

// "141054628 365492029 29"
std::optional<SchedStat> parseSchedStat(std::string_view text) {
    std::string_view line = takeLine(&text);
    const auto ran = number(takeWord(&line)), waited = number(takeWord(&line)), turns = number(takeWord(&line));
    if (!ran || !waited || !turns || !takeWord(&line).empty()) return std::nullopt;
    return SchedStat{*ran, *waited, *turns};
}

namespace {

// The first word behind `name` at the beginning of a line; "" when there is no such line.
std::string_view wordBehind(std::string_view text, std::string_view name) {
    while (!text.empty()) {
        std::string_view line = takeLine(&text);
        if (line.substr(0, name.size()) != name) continue;
        line.remove_prefix(name.size());
        return takeWord(&line);
    }
    return {};
}

}  // namespace

// "voluntary_ctxt_switches:	150"
std::optional<std::uint64_t> parseSleeps(std::string_view text) {
    return number(wordBehind(text, "voluntary_ctxt_switches:"));
}

// "Max open files            1024                 1048576              files"
std::optional<std::uint64_t> parseDescriptorLimit(std::string_view text) {
    const std::string_view soft = wordBehind(text, "Max open files ");
    return soft == "unlimited" ? std::numeric_limits<std::uint64_t>::max() : number(soft);
}

}  // namespace kernel
