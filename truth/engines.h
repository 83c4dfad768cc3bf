// engines.h - the load engines of a trial, and what they know about themselves.
#pragma once

#include <deque>
#include <string>

#include "load.h"
#include "words.h"

/// Engines that send for the length of a scope.
class Engines : public Load {
public:
    /// Comes back when all of them have begun to send. Their files are made in these directories: one in memory, one on
    /// a disk. Throws NotHere with the reason when one cannot do what is asked of it.
    Engines(int count, Words words, const Groups& groups, const Scratch& memory, const Scratch& disk);

    const std::deque<Process>& processes() const override { return processes_; }
    Truth worst(const Window& window) override;

private:
    void awaitReady(const std::string& errors);

    std::deque<SharedRecord> records_;
    std::deque<Process> processes_;
};
