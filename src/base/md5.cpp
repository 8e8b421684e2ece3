#include "base/md5.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace dorvo {
namespace {

constexpr std::array<uint32_t, 64> sines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr std::array<std::array<int, 4>, 4> shifts = {
    {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}}};

uint32_t loadLittle(const std::byte* data) {
    return std::to_integer<uint32_t>(data[0]) | std::to_integer<uint32_t>(data[1]) << 8 |
           std::to_integer<uint32_t>(data[2]) << 16 | std::to_integer<uint32_t>(data[3]) << 24;
}

}  // namespace

void Md5::init() {
    state_ = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    length_ = 0;
}

void Md5::block(const std::byte* data) {
    auto [a, b, c, d] = state_;
    for (uint32_t i = 0; i < 64; ++i) {
        const uint32_t round = i / 16;
        uint32_t mixed = 0;
        uint32_t word = 0;
        switch (round) {
            case 0:
                mixed = (b & c) | (~b & d);
                word = i;
                break;
            case 1:
                mixed = (d & b) | (~d & c);
                word = (5 * i + 1) % 16;
                break;
            case 2:
                mixed = b ^ c ^ d;
                word = (3 * i + 5) % 16;
                break;
            default:
                mixed = c ^ (b | ~d);
                word = (7 * i) % 16;
                break;
        }
        const uint32_t sum = a + mixed + sines[i] + loadLittle(data + size_t{word} * 4);
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, shifts[round][i % 4]);
    }
    state_ = {state_[0] + a, state_[1] + b, state_[2] + c, state_[3] + d};
}

void Md5::update(std::span<const std::byte> bytes) {
    size_t held = length_ % pending_.size();
    length_ += bytes.size();
    if (held != 0) {
        const size_t taken = std::min(pending_.size() - held, bytes.size());
        std::memcpy(pending_.data() + held, bytes.data(), taken);
        bytes = bytes.subspan(taken);
        if (held + taken < pending_.size()) {
            return;
        }
        block(pending_.data());
    }
    while (bytes.size() >= pending_.size()) {
        block(bytes.data());
        bytes = bytes.subspan(pending_.size());
    }
    if (!bytes.empty()) {
        std::memcpy(pending_.data(), bytes.data(), bytes.size());
    }
}

std::string Md5::final() {
    const uint64_t bits = length_ * 8;
    std::array<std::byte, 72> tail{};
    tail[0] = std::byte{0x80};
    const size_t held = length_ % 64;
    const size_t padding = held < 56 ? 56 - held : 120 - held;
    for (size_t i = 0; i < 8; ++i) {
        tail[padding + i] = static_cast<std::byte>(bits >> (8 * i));
    }
    update(std::span(tail).first(padding + 8));

    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint32_t word : state_) {
        for (int shift = 0; shift < 32; shift += 8) {
            const uint32_t byte = word >> shift & 0xff;
            text += digits[byte >> 4];
            text += digits[byte & 15];
        }
    }
    return text;
}

std::string Md5::of(std::span<const std::byte> bytes) {
    Md5 md5;
    md5.update(bytes);
    return md5.final();
}

}  // namespace dorvo
