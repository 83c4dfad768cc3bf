// ScratchBuffer.h - raw bytes for the length of a scope.
#pragma once

#include <cstddef>
#include <memory>

/// Owns `size` uninitialised bytes and releases them however its scope is left. Belongs to one thread.
class ScratchBuffer {
public:
    /// Throws std::bad_alloc when there is no memory.
    explicit ScratchBuffer(std::size_t size) : bytes_(new char[size]), size_(size) {}

    ScratchBuffer(const ScratchBuffer&) = delete;
    ScratchBuffer& operator=(const ScratchBuffer&) = delete;

    /// The bytes; they are released with the buffer.
    char* data() { return bytes_.get(); }
    /// The number of bytes.
    std::size_t size() const { return size_; }

private:
    std::unique_ptr<char[]> bytes_;
    std::size_t size_;
};
