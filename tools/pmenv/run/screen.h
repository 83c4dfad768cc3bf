// screen.h - what `stats --watch` shows, as lines of text.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "figures.h"
#include "keys.h"
#include "terminal.h"

/// The machine's bars, and its engines with the processor time of their last samples, the busiest first. An engine moves
/// in the list only when what it uses has clearly changed, so that a reader finds it where it was.
class Screen {
public:
    /// Shows the next sample. An engine that has gone is forgotten.
    void add(const Figures& figures);

    /// Scrolls the engines. False for a key that changes nothing.
    bool scroll(Key key);

    /// The lines, none wider and not more than `size` allows. Warnings are shortened before the first engines give way.
    std::vector<std::string> lines(const std::vector<std::string>& warnings, const TerminalSize& size,
                                   const Style& style);

private:
    struct Row {
        EngineFigures engine;
        std::deque<std::optional<double>> past;  // per cent of one processor
        std::optional<double> sortedBy;  // the same over the last samples, as it was when it had clearly changed
    };

    void keep(const std::vector<EngineFigures>& engines);
    static void remember(Row& row);
    std::vector<std::string> engineLines(const TerminalSize& size, std::size_t room, const Style& style);
    std::string totalLine(std::size_t columns) const;

    Figures figures_{};
    std::vector<Row> rows_;
    std::size_t first_ = 0;  // of the engines shown
    std::size_t shown_ = 0;  // at the last drawing
};
