#include "endpoints/password_hash.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "common/digest.h"

namespace dorvo {

namespace {

struct Cost {
    unsigned log2N = 15;
    unsigned r = 8;
    unsigned p = 1;
};

constexpr size_t hashBytes = 32;
constexpr uint64_t memoryLimit = 256ULL << 20U;

std::string derive(std::string_view password, std::string_view salt, const Cost& cost) {
    std::string key(hashBytes, '\0');
    if (EVP_PBE_scrypt(password.data(), password.size(),
                       reinterpret_cast<const unsigned char*>(salt.data()), salt.size(),
                       1ULL << cost.log2N, cost.r, cost.p, memoryLimit,
                       reinterpret_cast<unsigned char*>(key.data()), key.size()) != 1) {
        throw std::runtime_error("scrypt failed");
    }
    return hexText(key);
}

std::string format(std::string_view password, std::string_view salt, const Cost& cost) {
    return "scrypt:" + std::to_string(cost.log2N) + ":" + std::to_string(cost.r) + ":" +
           std::to_string(cost.p) + ":" + std::string(salt) + ":" + derive(password, salt, cost);
}

std::vector<std::string_view> split(std::string_view text) {
    std::vector<std::string_view> fields;
    while (true) {
        const size_t colon = text.find(':');
        fields.push_back(text.substr(0, colon));
        if (colon == std::string_view::npos) {
            return fields;
        }
        text.remove_prefix(colon + 1);
    }
}

bool number(std::string_view text, unsigned& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string hashPassword(std::string_view password) {
    return format(password, hexText(randomBytes(16)), Cost{});
}

bool passwordMatches(std::string_view password, std::string_view hash) {
    if (hash.empty()) {
        derive(password, "no such account", Cost{});
        return false;
    }
    const auto fields = split(hash);
    Cost cost;
    if (fields.size() != 6 || fields[0] != "scrypt" || !number(fields[1], cost.log2N) ||
        !number(fields[2], cost.r) || !number(fields[3], cost.p) || cost.log2N >= 32) {
        return false;
    }
    const std::string expected = format(password, fields[4], cost);
    return expected.size() == hash.size() &&
           CRYPTO_memcmp(expected.data(), hash.data(), hash.size()) == 0;
}

}  // namespace dorvo
