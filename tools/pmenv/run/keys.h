// keys.h - the keys of the live screen, from the bytes that a terminal sends.
#pragma once

#include <optional>
#include <string>

enum class Key { Quit, Up, Down, PageUp, PageDown, Top, Bottom, Other };

/// Puts the bytes of a key together: arrow keys send several.
class KeyReader {
public:
    /// The key that ends with `byte`; empty while more bytes of it are expected.
    std::optional<Key> add(int byte);

private:
    std::string sequence_;
};
