// screen.h - what `stats --watch` shows, as lines of text.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "figures.h"
#include "terminal.h"
#include "verdict.h"

/// The processor time of each engine over the last samples.
class History {
public:
    /// Appends the figures of a sample; an engine that has gone is forgotten.
    void add(const std::vector<EngineFigures>& engines);
    const std::deque<std::optional<double>>& of(int processId) const;

private:
    std::map<int, std::deque<std::optional<double>>> percentages_;
};

/// The lines of the screen, none wider and not more than `size` allows. Findings that last are among them as warnings.
std::vector<std::string> screenLines(const Figures& figures, const History& history, const Verdict& verdict,
                                     const TerminalSize& size, const Style& style);
