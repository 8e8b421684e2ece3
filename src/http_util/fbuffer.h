// A request body in pieces of memory: a prefix, borrowed data and a suffix.
//
// Prefix and suffix are owned; the data belongs to the caller, stays where it is until the command
// has run, and is handed to the socket without being copied. Any piece may be empty.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace dorvo {

// A run of borrowed bytes.
struct Memory_Piece {
    const void* data = nullptr;
    size_t length = 0;
};
using Memory_Pieces = std::array<Memory_Piece, 3>;

class FBuffer {
public:
    FBuffer() = default;
    FBuffer(std::string prefix, const void* data, size_t length, std::string suffix)
        : prefix_(std::move(prefix)), data_{data, length}, suffix_(std::move(suffix)) {}

    uint64_t length() const { return prefix_.size() + data_.length + suffix_.size(); }
    // In the order they are sent; valid until the buffer changes.
    Memory_Pieces pieces() const {
        return {{{prefix_.data(), prefix_.size()}, data_, {suffix_.data(), suffix_.size()}}};
    }

    const std::string& prefix() const { return prefix_; }
    const std::string& suffix() const { return suffix_; }

private:
    std::string prefix_;
    Memory_Piece data_;
    std::string suffix_;
};

}  // namespace dorvo
