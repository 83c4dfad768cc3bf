// krsTexts.h - what a settings file's parser and a settings table share: how a load fails, memory for texts, and the hash
// of a key. Header-only, because both sides go through it for each entry.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/random.h>

namespace krs {

// --- failures -------------------------------------------------------------------------------------------------------

/// Thrown inside a load, turned into KRSLoadError's text at its border.
struct LoadFailure {
    std::string reason;  // everything behind the path
};

// --- memory for texts -----------------------------------------------------------------------------------------------

// A small file can ask for any amount of memory, with one long section name above many keys or one long value referred
// to many times.
inline constexpr std::size_t kMaxTableBytes = 512U << 20;

/// Memory for texts, taken in large pieces and given back all at once.
class Arena {
public:
    // Copies `first` and `second`, joined and ended by NUL.
    char* store(std::string_view first, std::string_view second = {}) {
        const std::size_t needed = first.size() + second.size() + 1;
        if (needed > left_) addChunk(needed);
        char* const text = next_;
        std::copy(second.begin(), second.end(), std::copy(first.begin(), first.end(), text));
        text[needed - 1] = '\0';
        next_ += needed;
        left_ -= needed;
        return text;
    }

    void adopt(std::unique_ptr<char[]> chunk, std::size_t size) {
        checkRoom(size);
        chunks_.push_back(std::move(chunk));
        bytes_ += size;
    }

    // Takes over the other's texts, all or none, which stay where they are.
    void adopt(Arena&& other) {
        checkRoom(other.bytes_);
        chunks_.insert(chunks_.end(), std::make_move_iterator(other.chunks_.begin()),
                       std::make_move_iterator(other.chunks_.end()));
        bytes_ += other.bytes_;
    }

private:
    static constexpr std::size_t kChunkBytes = 64 * 1024;

    void checkRoom(std::size_t more) const {
        if (more <= kMaxTableBytes - bytes_) return;
        throw LoadFailure{
            ": the table's texts need more than 512 MiB; look for a very long section name or value in use"};
    }

    void addChunk(std::size_t needed) {
        const std::size_t size = std::max(needed, kChunkBytes);
        checkRoom(size);  // before memory is taken
        adopt(std::unique_ptr<char[]>(new char[size]), size);
        next_ = chunks_.back().get();
        left_ = size;
    }

    std::vector<std::unique_ptr<char[]>> chunks_;
    std::size_t bytes_ = 0;  // in all chunks
    char* next_ = nullptr;
    std::size_t left_ = 0;
};

// --- hashing --------------------------------------------------------------------------------------------------------

struct HashKey {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
};

// Drawn once per process. Where the kernel has no random bytes yet, the fixed key still hashes correctly.
inline const HashKey& hashKey() {
    static const HashKey key = [] {
        HashKey drawn;
        const ssize_t count = getrandom(&drawn, sizeof drawn, GRND_NONBLOCK);
        return count == sizeof drawn ? drawn : HashKey{};
    }();
    return key;
}

inline std::uint32_t rotateLeft(std::uint32_t value, unsigned count) {
    return (value << count) | (value >> (32 - count));
}

// HalfSipHash with one round a word and three at the end: a keyed hash made of 32-bit operations. Without the key
// nobody can write a settings file whose keys collide.
class KeyHash {
public:
    explicit KeyHash(const HashKey& key)
        : v0_(key.low), v1_(key.high), v2_(0x6c796765U ^ key.low), v3_(0x74656462U ^ key.high) {}

    std::uint32_t operator()(std::string_view key) {
        std::size_t left = key.size();
        const char* at = key.data();
        for (; left >= 4; left -= 4, at += 4) {
            std::uint32_t word;
            std::memcpy(&word, at, 4);
            mix(word);
        }
        std::uint32_t tail = 0;
        std::memcpy(&tail, at, left);
        mix(tail | static_cast<std::uint32_t>(key.size()) << 24);
        v2_ ^= 0xff;
        for (int i = 0; i < 3; ++i) round();
        return v1_ ^ v3_;
    }

private:
    void mix(std::uint32_t word) {
        v3_ ^= word;
        round();
        v0_ ^= word;
    }

    void round() {
        v0_ += v1_;
        v1_ = rotateLeft(v1_, 5) ^ v0_;
        v0_ = rotateLeft(v0_, 16);
        v2_ += v3_;
        v3_ = rotateLeft(v3_, 8) ^ v2_;
        v0_ += v3_;
        v3_ = rotateLeft(v3_, 7) ^ v0_;
        v2_ += v1_;
        v1_ = rotateLeft(v1_, 13) ^ v2_;
        v2_ = rotateLeft(v2_, 16);
    }

    std::uint32_t v0_, v1_, v2_, v3_;
};

/// The hash of a key, the same throughout the process.
inline std::uint32_t hashOf(std::string_view key) { return KeyHash(hashKey())(key); }

}  // namespace krs
