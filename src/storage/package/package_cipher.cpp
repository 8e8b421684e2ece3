#include "storage/package/package_cipher.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#define ZLIB  // the library is built with it; its header shows the zlib BIO only then
#include <openssl/comp.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/bio_chain.h"

namespace dorvo {
namespace {

// The cipher, with zlib over it on request, on top of `rest`; null when it cannot be made.
Bio cipher_chain(std::span<const uint8_t> key, const package_iv& iv, bool encrypting, bool zlib,
                 Bio rest) {
    const EVP_CIPHER* const cipher = aesCbc(key.size());
    Bio aes(BIO_new(BIO_f_cipher()));
    if (cipher == nullptr || aes == nullptr || rest == nullptr ||
        BIO_set_cipher(aes.get(), cipher, key.data(), iv.data(), encrypting ? 1 : 0) != 1) {
        return nullptr;
    }
    Bio chain = chained(std::move(aes), std::move(rest));
    if (!zlib) {
        return chain;
    }
    Bio over(BIO_new(BIO_f_zlib()));
    return over == nullptr ? nullptr : chained(std::move(over), std::move(chain));
}

// What OpenSSL counts in signed 32-bit numbers.
bool countable(std::span<const uint8_t> bytes) {
    return bytes.size() <= static_cast<size_t>(INT32_MAX);
}

int32_t encode(std::span<const uint8_t> key, const package_iv& iv, bool zlib,
               std::span<const uint8_t> in, std::span<uint8_t> out) {
    const Bio chain = cipher_chain(key, iv, true, zlib, Bio(BIO_new(BIO_s_mem())));
    size_t written = 0;
    if (chain == nullptr || !countable(in) ||
        (!in.empty() && BIO_write_ex(chain.get(), in.data(), in.size(), &written) != 1) ||
        written != in.size() || BIO_flush(chain.get()) != 1) {
        ERR_clear_error();
        return 0;
    }
    uint8_t* data = nullptr;
    const auto size = static_cast<size_t>(BIO_get_mem_data(chain.get(), &data));
    if (size > out.size()) {
        return 0;
    }
    std::copy_n(data, size, out.begin());
    return static_cast<int32_t>(size);
}

// The zlib BIO inflates only what is read through it. It tells damage from an end by nothing but
// the error that it leaves.
int32_t decode(std::span<const uint8_t> key, const package_iv& iv, bool zlib,
               std::span<const uint8_t> in, std::span<uint8_t> out) {
    if (!countable(in) || !countable(out)) {
        return 0;
    }
    const Bio chain = cipher_chain(key, iv, false, zlib,
                                   Bio(BIO_new_mem_buf(in.data(), static_cast<int>(in.size()))));
    ERR_clear_error();
    if (chain == nullptr) {
        return 0;
    }
    size_t size = 0;
    size_t got = 0;
    while (size < out.size() &&
           BIO_read_ex(chain.get(), out.data() + size, out.size() - size, &got) == 1) {
        size += got;
    }
    // Where there was just enough room, the padding and the check sum are still to come.
    uint8_t more = 0;
    const bool too_long = size == out.size() && BIO_read_ex(chain.get(), &more, 1, &got) == 1;
    const bool damaged = ERR_peek_error() != 0;
    ERR_clear_error();
    return too_long || damaged ? 0 : static_cast<int32_t>(size);
}

}  // namespace

int32_t encrypt_content(std::span<const uint8_t> key, const package_iv& iv,
                        std::span<const uint8_t> in, std::span<uint8_t> out) {
    return encode(key, iv, false, in, out);
}

int32_t compress_encrypt_content(std::span<const uint8_t> key, const package_iv& iv,
                                 std::span<const uint8_t> in, std::span<uint8_t> out) {
    return encode(key, iv, true, in, out);
}

int32_t decrypt_content(std::span<const uint8_t> key, const package_iv& iv,
                        std::span<const uint8_t> in, std::span<uint8_t> out) {
    return decode(key, iv, false, in, out);
}

int32_t decrypt_decompress_content(std::span<const uint8_t> key, const package_iv& iv,
                                   std::span<const uint8_t> in, std::span<uint8_t> out) {
    return decode(key, iv, true, in, out);
}

}  // namespace dorvo
