// pmenv-exporter - serves figures of this host's load engines to a metrics collector.
//
// One thread watches the engines by its own clock, so that no disturbance between two scrapes is lost. Another one answers
// from what is known; neither waits for the other, except while a text is written.
#include <csignal>
#include <iostream>

#include "board.h"
#include "events.h"
#include "evidenceWatch.h"
#include "failure.h"
#include "listener.h"
#include "options.h"
#include "program.h"
#include "server.h"

namespace {

// What is the case now, read once a second at most.
class States {
public:
    explicit States(bool machine) : machine_(machine) {}

    const Figures& at(const Evidence& evidence) {
        constexpr double kLeastAge = 0.9;  // seconds
        if (evidence.to - taken_ < kLeastAge) return figures_;
        taken_ = evidence.to;
        figures_ = machine_ ? sampler_.take() : figuresOfHost();
        figures_.engines.clear();
        for (const EngineEvidence& engine : evidence.engines) {
            figures_.engines.push_back(
                {engine.key.pid, engine.name, std::nullopt, residentBytes(engine.key.pid), engine.key.startTicks});
        }
        return figures_;
    }

private:
    bool machine_;
    Sampler sampler_;
    Figures figures_{};
    double taken_ = -1;
};

Listener listenerFor(const ExporterOptions& options) {
    return Listener::isHandedOver() ? Listener::handedOver() : Listener(options.listen);
}

std::vector<std::string> namesOf(const EngineChoice& choice) {
    std::vector<std::string> names{kEngineName};
    for (const std::string& name : choice.names) names.push_back(name.substr(0, kernel::kNameLength));
    return names;
}

// Until somebody ends it.
int serve(const CommandLine& line) {
    const ExporterOptions options = exporterOptions(line);
    Events events({SIGINT, SIGTERM}, false);  // before the server's thread begins, which is not to get them
    Listener listener = listenerFor(options);
    Board board(namesOf(options.choice), options.tolerance, options.parts);
    States states(options.parts.machine);
    EvidenceWatch watch(options.choice, options.ignored, options.tolerance,
                        [&](const Evidence& evidence) { board.add(evidence, states.at(evidence)); });
    Server server(std::move(listener),
                  [&](const std::string& method, const std::string& path, const std::string& accept) {
                      return answerTo(method, path, accept, board);
                  });
    std::cerr << "pmenv-exporter: figures of the load engines are at http://" + server.listener().address() +
                     "/metrics\n";
    while (watch.wait(events, 1).kind != Events::Kind::Signal) server.endSlowConnections();
    return kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    return runCommandLine(exporterGrammar(serve), argc, argv);
}
