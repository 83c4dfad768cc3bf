#include "figures.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "failure.h"
#include "text.h"

namespace {

// --- places ---------------------------------------------------------------------------------------------------------

using Place = std::optional<double>*;

std::string labelOf(const Labels& labels, const char* name) {
    const auto found = labels.find(name);
    return found != labels.end() ? found->second : "";
}

template <std::optional<double> Generator::*figure>
Place ofGenerator(Generator& generator, const Labels&) {
    return &(generator.*figure);
}

Engine& engineOf(Generator& generator, const Labels& labels) {
    return generator.engines[{labelOf(labels, "name"), labelOf(labels, "pid")}];
}

template <std::optional<double> Engine::*figure>
Place ofEngine(Generator& generator, const Labels& labels) {
    return &(engineOf(generator, labels).*figure);
}

Place ofState(Generator& generator, const Labels& labels) {
    constexpr std::string_view kStates[kStateCount] = {"waiting", "throttled", "stolen", "blocked", "stopped"};
    const auto* const state = std::find(std::begin(kStates), std::end(kStates), labelOf(labels, "state"));
    return state != std::end(kStates) ? &engineOf(generator, labels).did[state - kStates] : nullptr;
}

// --- queries --------------------------------------------------------------------------------------------------------

// As a text of PromQL.
std::string quoted(const std::string& text) {
    std::string quotes = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quotes += '\\';
        quotes += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return quotes + "\"";
}

std::string durationText(std::int64_t milliseconds) {
    const bool whole = milliseconds % 1000 == 0;
    return whole ? std::to_string(milliseconds / 1000) + "s" : std::to_string(milliseconds) + "ms";
}

}  // namespace

const std::vector<Figure>& figures() {
    static const std::vector<Figure> all{
        {"count_over_time(up[W])", ofGenerator<&Generator::scrapes>},
        {"count_over_time(pmenv_watch_seconds_total[W])", ofGenerator<&Generator::answered>},
        {"increase(pmenv_watch_seconds_total[W])", ofGenerator<&Generator::watched>},
        {"increase(pmenv_watch_late_wakes_total[W]) / increase(pmenv_watch_wakes_total[W])",
         ofGenerator<&Generator::late>},
        // Where the sum of the fewest of each name is not the fewest of all, one of them has ended.
        {"sum by (job, instance) (min_over_time(pmenv_engines[W]))", ofGenerator<&Generator::fewest>},
        {"sum by (job, instance) (max_over_time(pmenv_engines[W]))", ofGenerator<&Generator::most>},
        {"max_over_time(pmenv_engines_expected[W])", ofGenerator<&Generator::expected>},
        {"sum by (job, instance) (increase(pmenv_engines_ended_total[W]))", ofGenerator<&Generator::ended>},
        {"sum by (job, instance) (increase(pmenv_engines_killed_total[W]))", ofGenerator<&Generator::killed>},
        {"max by (job, instance) (increase(pmenv_engine_group_memory_kills_total[W]))",
         ofGenerator<&Generator::memoryKills>},
        // Each engine that runs has a size, also where nothing else of it can be read.
        {"count_over_time(pmenv_engine_memory_bytes[W])", ofEngine<&Engine::present>},
        {"increase(pmenv_engine_held_back_seconds_total[W])"
         " / on (job, instance) group_left () increase(pmenv_watch_seconds_total[W])",
         ofEngine<&Engine::heldBack>},
        {"(increase(pmenv_engine_held_back_seconds_total[W]) + increase(pmenv_engine_in_doubt_seconds_total[W]))"
         " / on (job, instance) group_left () increase(pmenv_watch_seconds_total[W])",
         ofEngine<&Engine::heldBackAtMost>},
        {"increase(pmenv_engine_busiest_thread_seconds_total[W])"
         " / on (job, instance) group_left () increase(pmenv_watch_seconds_total[W])",
         ofState},
        {"max_over_time(pmenv_engine_descriptors_ratio[W])", ofEngine<&Engine::descriptors>},
        {"max_over_time(pmenv_engine_ports_ratio[W])", ofEngine<&Engine::ports>},
    };
    return all;
}

std::string queryFor(const Figure& figure, const std::string& job, std::int64_t windowMilliseconds) {
    constexpr std::string_view kWindow = "[W]";
    const std::string selector = "{job=" + quoted(job) + "}[" + durationText(windowMilliseconds) + "]";
    std::string query = figure.expression;
    for (std::size_t at = 0; (at = query.find(kWindow, at)) != std::string::npos; at += selector.size()) {
        query.replace(at, kWindow.size(), selector);
    }
    return query;
}

void addAnswer(const Figure& figure, const Answer& answer, Fleet* fleet) {
    std::vector<Place> taken;
    for (const Sample& sample : answer.samples) {
        const std::string instance = labelOf(sample.labels, "instance");
        const Place place = figure.place((*fleet)[instance], sample.labels);
        if (place == nullptr) continue;
        taken.push_back(place);
        *place = sample.value;
    }
    std::sort(taken.begin(), taken.end());
    if (std::adjacent_find(taken.begin(), taken.end()) == taken.end()) return;
    throw Failure(std::string("the server knows a figure of a load generator twice: ") + figure.expression +
                  "; generators of a job must differ in their label 'instance'");
}
