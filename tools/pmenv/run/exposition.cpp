#include "exposition.h"

#include <cstdio>
#include <string_view>

#include "recording/texts.h"

std::string label(const char* name, const std::string& value) {
    std::string text = std::string(name) + "=\"";
    for (const char character : recording::toUtf8(value)) {
        if (character == '"' || character == '\\') text += '\\';
        text += character == '\n' ? "\\n" : std::string(1, character);
    }
    return text + "\"";
}

std::string joinedLabels(const std::string& labels, const std::string& more) {
    return labels.empty() || more.empty() ? labels + more : labels + "," + more;
}

std::string metricHeading(const std::string& name, const char* type, const std::string& help) {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string asOpenMetrics(const std::string& exposition) {
    constexpr std::string_view kSuffix = "_total";
    std::string text;
    for (std::size_t from = 0; from < exposition.size();) {
        const std::size_t end = exposition.find('\n', from) + 1;
        std::string line = exposition.substr(from, end - from);
        const std::size_t nameEnd = line.find(' ', std::string_view("# HELP ").size());
        const bool isHeading = line[0] == '#' && nameEnd != std::string::npos;
        if (isHeading && line.compare(nameEnd - kSuffix.size(), kSuffix.size(), kSuffix) == 0) {
            line.erase(nameEnd - kSuffix.size(), kSuffix.size());
        }
        text += line;
        from = end;
    }
    return text;
}

MetricNow& MetricNow::add(const std::string& labels, std::optional<double> value) {
    if (!value) return *this;
    char number[32];
    std::snprintf(number, sizeof number, " %.15g\n", *value);
    series_ += name_ + (labels.empty() ? "" : "{" + labels + "}") + number;
    return *this;
}
