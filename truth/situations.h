// situations.h - the table of situations that pmenv's judgement is held against.
#pragma once

#include <string>
#include <vector>

/// What can be seen of a situation from outside. It does not enter the measurement: it says which wrong answers are
/// defects and which are limits.
enum class Sight {
    Shown,
    Uneven,  ///< that, but requests are not spread evenly over time and threads: how much time is bad does not tell how many
    Hidden,  ///< the kernel does not show it
    Others,  ///< shown, with other load generators
};

/// The words are those of engine.cpp or generators.h and of disturbance.h. A value LOW..HIGH is drawn anew for each repetition.
struct Situation {
    std::string name;
    std::string what;          ///< in words that an operator understands
    std::string engine;        ///< empty: there is none
    std::string disturbance;   ///< empty: none
    std::string options = {};  ///< more options of `pmenv judge`
    Sight sight = Sight::Shown;
};

const std::vector<Situation>& situations();

/// Null when there is none of this name.
const Situation* findSituation(const std::string& name);
