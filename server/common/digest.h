// Digests, random bytes and their hexadecimal text, all from OpenSSL.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace dorvo {

// Lower-case hexadecimal text, two digits a byte.
std::string hexText(std::string_view bytes);

// The MD5 of the bytes, 16 raw bytes.
std::string md5(std::string_view bytes);

// The SHA-256 of the bytes, 32 raw bytes.
std::string sha256(std::string_view bytes);

// Bytes that nobody can guess. Throws std::runtime_error when the generator has none.
std::string randomBytes(size_t count);

}  // namespace dorvo
