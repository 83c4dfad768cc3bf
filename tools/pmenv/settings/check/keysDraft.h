// keysDraft.h - known keys to begin with, guessed from existing settings files.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

class KeysDraft {
public:
    /// Looks at the settings in the file `path`, which is called `name` to the user. Throws Failure when it cannot be
    /// read.
    void add(const std::string& path, const std::string& name);

    /// A file of known keys that accepts every file that was added.
    std::string text() const;

private:
    // What may be said of a setting, as far as all its values so far allow it.
    struct Guess {
        std::string key;
        bool isRead = false;
        bool isInteger = true;
        bool isNumber = true;
        bool isBoolean = true;
        bool isPath = true;
    };

    Guess& guessFor(const std::string& key);
    static void narrow(Guess& guess, const std::string& value);
    static const char* typeOf(const Guess& guess);

    std::vector<std::string> files_;
    std::vector<Guess> guesses_;  // in the order in which the keys were met
    std::unordered_map<std::string, std::size_t> byKey_;
};
