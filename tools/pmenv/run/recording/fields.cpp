#include "recording/fields.h"

#include "recording/recording.h"

namespace recording {

namespace {

constexpr double kThousandths = 1000;

// What the lists of a recording leave out of the engine's waited time.
std::int64_t waitedOf(const ThreadEvidence& thread) {
    return millionths(thread.parts.waiting) + millionths(thread.parts.throttled) + millionths(thread.waitedBefore);
}

std::int64_t lengthOf(const EngineEvidence& engine) { return millionths(engine.to) - millionths(engine.from); }

}  // namespace

EngineNumbers numbersOf(const EngineEvidence& engine, const ThreadEvidence& thread) {
    EngineNumbers numbers;
    numbers.running = millionths(thread.parts.running);
    numbers.turns = *numberOf(thread.turns);
    numbers.waiting = millionths(thread.parts.waiting);
    if (engine.busiest) numbers.longer = millionths(thread.seconds) - lengthOf(engine);
    numbers.othersRan = millionths(engine.ran) - numbers.running;
    numbers.othersTurns = *numberOf(engine.turns) - numbers.turns;
    numbers.othersWaited = millionths(engine.waited) - waitedOf(thread);
    numbers.lateTurns = rounded(engine.lateTurns * kThousandths);
    return numbers;
}

void assign(EngineEvidence& engine, ThreadEvidence& thread, const EngineNumbers& numbers) {
    thread.parts.running = fromMillionths(numbers.running);
    thread.turns = static_cast<std::uint64_t>(numbers.turns);
    thread.parts.waiting = fromMillionths(numbers.waiting);
    thread.seconds = fromMillionths(lengthOf(engine) + numbers.longer);
    engine.ran = fromMillionths(numbers.running + numbers.othersRan);
    engine.turns = static_cast<std::uint64_t>(numbers.turns + numbers.othersTurns);
    engine.waited = fromMillionths(waitedOf(thread) + numbers.othersWaited);
    engine.lateTurns = static_cast<double>(numbers.lateTurns) / kThousandths;
}

}  // namespace recording

namespace {

using namespace recording;

template <class Figure>
void roundFigure(Figure& figure) {
    assign(figure, numberOf(figure));
}

void roundEngine(EngineEvidence& engine) {
    ThreadEvidence none;
    ThreadEvidence& thread = engine.busiest ? *engine.busiest : none;
    roundFigure(engine.from);
    roundFigure(engine.to);
    visitSteady(engine, thread, [](const char*, auto& figure) { roundFigure(figure); });
    assign(engine, thread, numbersOf(engine, thread));
}

}  // namespace

Evidence asRecorded(Evidence evidence) {
    roundFigure(evidence.from);
    roundFigure(evidence.to);
    roundFigure(evidence.wakes.longest);
    visitMachine(evidence.machine, [](const char*, auto& figure) { roundFigure(figure); });
    for (EngineEvidence& engine : evidence.engines) roundEngine(engine);
    for (EngineEnd& end : evidence.ends) roundFigure(end.time);
    for (ProgramTime& program : evidence.others) roundFigure(program.seconds);
    return evidence;
}
