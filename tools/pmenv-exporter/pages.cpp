#include "pages.h"

namespace {

constexpr char kIndex[] =
    "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>pmenv-exporter</title></head>\n"
    "<body><h1>pmenv-exporter</h1>\n<p>Whether this host's load engines are held back: <a "
    "href=\"/metrics\">metrics</a> for "
    "a metrics collector.</p></body></html>\n";

Answer page(unsigned status, const std::string& text) {
    Answer answer;
    answer.status = status;
    answer.body = std::make_shared<std::string>(text);
    return answer;
}

// A collector that knows the newer form of the text names it.
Answer metrics(const std::string& accept, const Board& board) {
    const bool newer = accept.find("application/openmetrics-text") != std::string::npos;
    Answer answer;
    answer.type = newer ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                        : "text/plain; version=0.0.4; charset=utf-8";
    answer.body = board.exposition(newer ? Form::OpenMetrics : Form::Text);
    return answer;
}

Answer index() {
    Answer answer = page(200, kIndex);
    answer.type = "text/html; charset=utf-8";
    return answer;
}

}  // namespace

Answer answerTo(const std::string& method, const std::string& path, const std::string& accept, const Board& board) {
    if (method != "GET" && method != "HEAD") return page(405, "Only GET and HEAD are answered here.\n");
    if (path == "/metrics") return metrics(accept, board);
    if (path == "/") return index();
    if (path != "/-/healthy") return page(404, "There is only /metrics, / and /-/healthy.\n");
    return board.isFresh() ? page(200, "The load engines are watched.\n")
                           : page(503, "The load engines have not been looked at for 10 seconds.\n");
}
