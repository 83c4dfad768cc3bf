#pragma once

#include <vector>

class ScratchBuffer {
public:
    explicit ScratchBuffer(std::size_t size) : bytes_(size) {}
    char* data() { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }

private:
    std::vector<char> bytes_;
};
