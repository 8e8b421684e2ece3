// The examples of docs/formats/package-stream.md, for tests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace dorvo::test {

using Bytes = std::vector<uint8_t>;

constexpr std::string_view golden_name = "C:\\data\\Zo\xc3\xab.txt";
constexpr std::string_view golden_content = "Hello, hello, hello, hello!\n";
constexpr std::string_view golden_key = "0123456789abcdef";
constexpr uint64_t golden_time = 134'215'200'000'000'000;

constexpr std::string_view golden_file =
    "5000000052444857000000000000000000000000000000002000000"
    "01c0000000000000080d60d6803d4dc01006da66803d4dc010040756703d4dc0140001000"
    "433a5c646174615c5a6fc3ab2e747874";
constexpr std::string_view golden_data =
    "5400000041544144030000001c000000443322118877665500000000010000002400"
    "1000f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff"
    "95d4ea6b0b4896164f6b6d8e06baae7bc81bb90e75fab973f06be08945e0e03e";
constexpr std::string_view golden_compressed_data =
    "5400000041544144030000001c000000443322118877665502000600010000002400"
    "1000f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff"
    "bea51877186343f093c400c02a137b4bca3909742ba7a5b3c01967893fc1d62e";

inline Bytes from_hex(std::string_view digits) {
    Bytes bytes;
    for (size_t at = 0; at + 1 < digits.size(); at += 2) {
        const std::string pair(digits.substr(at, 2));
        bytes.push_back(static_cast<uint8_t>(std::stoul(pair, nullptr, 16)));
    }
    return bytes;
}

}  // namespace dorvo::test
