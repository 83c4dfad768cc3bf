#include "fleetOptions.h"

#include <algorithm>
#include <cctype>

#include "failure.h"

namespace {

[[noreturn]] void refuse(const std::string& what) { throw Failure(what + "; see 'pmenv fleet --help'", kExitUsage); }

// Where the host of a URL begins, or npos: only these two protocols are spoken.
std::size_t beginOfHost(std::string url) {
    std::transform(url.begin(), url.end(), url.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const std::string protocol : {"http://", "https://"}) {
        if (url.compare(0, protocol.size(), protocol) == 0) return protocol.size();
    }
    return std::string::npos;
}

bool isPartOfUrl(unsigned char c) { return c > ' ' && c < 0x7f && c != '?' && c != '#' && c != '\\'; }

// The URL is not quoted, because it may contain a password.
std::string urlOf(const CommandLine& line) {
    std::string url = line.text("prometheus");
    if (!line.has("prometheus")) refuse("the server is needed: --prometheus URL");
    const std::size_t host = beginOfHost(url);
    const bool hasHost = host < url.size() && url[host] != '/';
    if (!hasHost || !std::all_of(url.begin(), url.end(), isPartOfUrl)) {
        refuse("--prometheus needs a URL as http://HOST:9090 or https://HOST/PREFIX");
    }
    url.erase(url.find_last_not_of('/') + 1);
    return url;
}

Moment momentOf(const CommandLine& line, const char* option, Moment now, const char* otherwise) {
    const std::string text = line.text(option, otherwise);
    if (const std::optional<Moment> moment = parseMoment(text, now)) return *moment;
    refuse("--" + std::string(option) + " needs a time as 2026-11-21T18:00:00Z, 1795312345, now or -10m, not '" + text +
           "'");
}

}  // namespace

FleetOptions fleetOptions(const CommandLine& line, Moment now) {
    FleetOptions options{};
    options.url = urlOf(line);
    if (!line.has("from")) refuse("the beginning of the run is needed: --from T");
    options.from = momentOf(line, "from", now, "");
    options.to = momentOf(line, "to", now, "now");
    if (options.from >= options.to) refuse("--from must lie before --to");
    options.job = line.text("job", "pmenv");
    if (options.job.empty()) refuse("--job needs a name");
    options.percentile = line.number("percentile", 99);
    options.timeout = line.number("timeout", 30);
    options.json = line.has("json");
    return options;
}

std::string shownUrl(const std::string& url) {
    const std::size_t host = beginOfHost(url);
    const std::size_t path = std::min(url.find('/', host), url.size());
    const std::size_t user = url.rfind('@', path);
    if (user == std::string::npos || user < host) return url;
    return url.substr(0, host) + url.substr(user + 1);
}
