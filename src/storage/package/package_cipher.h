// Content of packages through OpenSSL's BIO chains: AES in CBC mode with PKCS #7 padding, with zlib
// in front of it on request.
//
// The key's length in bytes chooses the cipher: 16, 24 or 32. Each call gives the length of what it
// has put at `out`, or 0 when it failed, be it that `out` is too small. Encryption works in place
// and leaves `out` as it was when it fails; decryption needs memory of its own and may spoil it.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace dorvo {

using package_iv = std::array<uint8_t, 16>;

int32_t encrypt_content(std::span<const uint8_t> key, const package_iv& iv,
                        std::span<const uint8_t> in, std::span<uint8_t> out);
int32_t compress_encrypt_content(std::span<const uint8_t> key, const package_iv& iv,
                                 std::span<const uint8_t> in, std::span<uint8_t> out);
int32_t decrypt_content(std::span<const uint8_t> key, const package_iv& iv,
                        std::span<const uint8_t> in, std::span<uint8_t> out);
int32_t decrypt_decompress_content(std::span<const uint8_t> key, const package_iv& iv,
                                   std::span<const uint8_t> in, std::span<uint8_t> out);

}  // namespace dorvo
