// Text as Base64 of its AES-CBC ciphertext, over OpenSSL, and Base64 alone.
//
// Base64 has the standard alphabet, "=" padding and no line breaks. Failures throw
// std::runtime_error. No state; any thread.
#pragma once

#include <span>
#include <string>

namespace dorvo {

using ByteSpan = std::span<const unsigned char>;

std::string encodeBase64(const std::string& bytes);
// Anything but one line of Base64 fails.
std::string decodeBase64(const std::string& text);

// A key of 16, 24 or 32 bytes selects AES-128, 192 or 256; the IV has 16. The last block is padded
// as in PKCS#7, so a whole number of blocks gains one more.
std::string encodeText(const std::string& text, ByteSpan key, ByteSpan iv);
std::string decodeText(const std::string& encoded, ByteSpan key, ByteSpan iv);

// Random bytes fit for keys.
std::string randomBytes(size_t count);

}  // namespace dorvo
