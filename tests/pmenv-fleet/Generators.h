// Generators.h - load generators as the tests of the verdict know them.
#pragma once

#include "verdict/verdict.h"

constexpr double kWindow = 600;  // seconds
inline const EngineName kFirst{"PMLoadEngineMai", "11"}, kSecond{"PMLoadEngineMai", "12"};

inline Engine engineHeldBack(double share) {
    Engine engine;
    engine.heldBack = engine.heldBackAtMost = share;
    return engine;
}

/// Two engines that were on time throughout.
inline Generator goodGenerator() {
    Generator generator;
    generator.scrapes = 40;
    generator.watched = kWindow;
    generator.late = generator.ended = generator.killed = generator.memoryKills = 0;
    generator.fewest = generator.most = 2;
    generator.engines = {{kFirst, engineHeldBack(0)}, {kSecond, engineHeldBack(0.001)}};
    for (auto& [name, engine] : generator.engines) engine.descriptors = engine.ports = 0.1;
    return generator;
}

inline State stateOf(std::size_t i) { return static_cast<State>(i); }
inline std::optional<double>& shareIn(Engine& engine, State state) {
    return engine.did[static_cast<std::size_t>(state)];
}
