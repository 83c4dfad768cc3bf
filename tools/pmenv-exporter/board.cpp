#include "board.h"

#include <utility>

#include "exposition.h"
#include "kernel/files.h"

Board::Board(const std::vector<std::string>& names, double tolerance, const ExpositionParts& parts)
    : parts_(parts), counters_(names, tolerance), added_(kernel::clockSeconds()) {}

void Board::add(const Evidence& evidence, Figures states) {
    const std::lock_guard lock(mutex_);
    counters_.add(evidence);
    states_ = std::move(states);
    added_ = kernel::clockSeconds();
    text_ = nullptr;
    openMetrics_ = nullptr;
}

std::shared_ptr<const std::string> Board::exposition(Form form) const {
    const std::lock_guard lock(mutex_);
    if (!text_) text_ = std::make_shared<std::string>(counters_.text(states_, parts_));
    if (form == Form::Text) return text_;
    if (!openMetrics_) openMetrics_ = std::make_shared<std::string>(asOpenMetrics(*text_));
    return openMetrics_;
}

bool Board::isFresh() const {
    constexpr double kLongestSilence = 10;  // seconds; an interval takes at most one
    const std::lock_guard lock(mutex_);
    return kernel::clockSeconds() - added_ < kLongestSilence;
}
