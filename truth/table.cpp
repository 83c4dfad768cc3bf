#include "table.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "situations.h"
#include "trial.h"

namespace {

using Json = nlohmann::json;

template <class... Values>
std::string format(const char* pattern, Values... values) {
    char text[256];
    std::snprintf(text, sizeof text, pattern, values...);
    return text;
}

std::string percent(const Json& share) { return share.is_null() ? "–" : format("%.1f %%", 100 * share.get<double>()); }

// Those of the rows that have this figure.
std::vector<double> figures(const std::vector<Json>& rows, const char* name) {
    std::vector<double> found;
    for (const Json& row : rows) {
        if (!row[name].is_null()) found.push_back(row[name]);
    }
    return found;
}

// "0.0 %" or "12.1–29.9 %".
std::string percentRange(std::vector<double> shares) {
    if (shares.empty()) return "–";
    const auto [low, high] = std::minmax_element(shares.begin(), shares.end());
    const std::string from = format("%.1f", 100 * *low), to = format("%.1f", 100 * *high);
    return (from == to ? from : from + "–" + to) + " %";
}

// "+0.3 ± 1.2": by how many points of per cent the told share is above the measured one, mean and standard deviation.
std::string pointsApart(const std::vector<Json>& rows) {
    std::vector<double> points;
    for (const Json& row : rows) {
        if (!row["late"].is_null() && !row["told"].is_null()) {
            points.push_back(100 * (row["told"].get<double>() - row["late"].get<double>()));
        }
    }
    if (points.empty()) return "–";
    const double mean = std::accumulate(points.begin(), points.end(), 0.0) / static_cast<double>(points.size());
    double squares = 0;
    for (const double point : points) squares += (point - mean) * (point - mean);
    return format("%+.1f ± %.1f", mean, std::sqrt(squares / static_cast<double>(points.size())));
}

// "5 spoiled" or "4 clean, 1 cannot tell": how often each answer of this name came.
std::string countsOf(const std::vector<Json>& rows, const char* name) {
    std::map<std::string, int> counts;
    for (const Json& row : rows) ++counts[row[name]];
    std::string text;
    for (const auto& [answer, count] : counts) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + answer;
    }
    return text;
}

std::vector<Json> rowsOf(const Json& report, const std::string& situation) {
    std::vector<Json> rows;
    std::copy_if(report["rows"].begin(), report["rows"].end(), std::back_inserter(rows),
                 [&](const Json& row) { return row["situation"] == situation; });
    return rows;
}

// How far the told share lies from the measured one, where that is over the limit.
std::string factors(const std::vector<Json>& rows) {
    std::vector<double> factors;
    for (const Json& row : rows) {
        if (row["late"].is_null() || row["late"] <= kSpoiled || row["told"].is_null()) continue;
        factors.push_back(row["told"].get<double>() / row["late"].get<double>());
    }
    if (factors.empty()) return "";
    std::sort(factors.begin(), factors.end());
    const auto within = std::count_if(factors.begin(), factors.end(), [](double f) { return f >= 0.5 && f <= 2; });
    return format(
        "Told over measured, where over 1 %% is late: median %.2f, lowest %.2f, highest %.2f; %td of %zu within a "
        "factor of 2.\n",
        factors[factors.size() / 2], factors.front(), factors.back(), within, factors.size());
}

// The situations that are shown, or hidden, that were tried.
std::string part(const Json& report, Sight sight) {
    std::string text = "| situation | really late | told | points apart | verdicts | |\n|---|---:|---:|---:|---|---|\n";
    std::vector<Json> all;
    for (const Situation& situation : situations()) {
        const std::vector<Json> rows = rowsOf(report, situation.name);
        if (situation.sight != sight || rows.empty()) continue;
        all.insert(all.end(), rows.begin(), rows.end());
        text += "| " + situation.what + " (`" + situation.name + "`) | " + percentRange(figures(rows, "late")) + " | " +
                percentRange(figures(rows, "told")) + " | " + pointsApart(rows) + " | " + countsOf(rows, "verdict") +
                " | " + countsOf(rows, "grade") + " |\n";
    }
    if (all.empty()) return "";
    return text + "\n" + std::to_string(all.size()) + " trials: " + countsOf(all, "grade") + ".\n" + factors(all);
}

}  // namespace

std::string lineOf(const Json& row) {
    return format("%-22s late %-8s told %-8s %-12s %-12s %s", row["situation"].get<std::string>().c_str(),
                  percent(row["late"]).c_str(), percent(row["told"]).c_str(), row["verdict"].get<std::string>().c_str(),
                  row["grade"].get<std::string>().c_str(), row["words"].get<std::string>().c_str());
}

std::string tableOf(const Json& report) {
    const struct {
        Sight sight;
        const char* heading;
    } parts[] = {
        {Sight::Shown, "What the kernel shows:"},
        {Sight::Uneven, "What it shows, but not how many requests it is about:"},
        {Sight::Hidden, "What it does not show:"},
        {Sight::Others, "Other load generators, which measure a local nginx:"},
    };
    std::string text;
    for (const auto& [sight, heading] : parts) {
        const std::string table = part(report, sight);
        if (!table.empty()) text += (text.empty() ? "" : "\n") + std::string(heading) + "\n\n" + table;
    }
    if (!report["disturbed"].empty()) {
        text += format("\nNot counted, because another load engine ran on the machine: %zu trials.\n",
                       report["disturbed"].size());
    }
    for (const auto& [situation, reason] : report["notHere"].items()) {
        text += "\nNot possible on this machine: `" + situation + "` (" + reason.get<std::string>() + ").\n";
    }
    return text;
}
