// MD5 (RFC 1321) of a stream of bytes, as 32 lower-case hexadecimal digits.
//
// Usage: init, any number of updates, final. After final, init starts anew. A fresh object is
// initialised.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace dorvo {

class Md5 {
public:
    Md5() { init(); }

    void init();
    void update(std::span<const std::byte> bytes);
    std::string final();

    // The digest of one piece of memory.
    static std::string of(std::span<const std::byte> bytes);

private:
    void block(const std::byte* data);

    std::array<uint32_t, 4> state_{};
    uint64_t length_ = 0;
    std::array<std::byte, 64> pending_{};
};

}  // namespace dorvo
