#include "common/digest.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <stdexcept>

namespace dorvo {

namespace {

std::string digest(std::string_view bytes, const EVP_MD* algorithm) {
    std::string result(EVP_MAX_MD_SIZE, '\0');
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(result.data()),
                   &length, algorithm, nullptr) != 1) {
        throw std::runtime_error("digest failed");
    }
    result.resize(length);
    return result;
}

}  // namespace

std::string hexText(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

std::string md5(std::string_view bytes) {
    return digest(bytes, EVP_md5());
}

std::string sha256(std::string_view bytes) {
    return digest(bytes, EVP_sha256());
}

std::string randomBytes(size_t count) {
    std::string bytes(count, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) != 1) {
        throw std::runtime_error("no random bytes");
    }
    return bytes;
}

}  // namespace dorvo
