// OpenSSL's BIO chains and their owner. Who includes this links OpenSSL.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <cstddef>
#include <memory>

namespace dorvo {

struct FreeBios {
    void operator()(BIO* chain) const { BIO_free_all(chain); }
};
// Owns the BIO and those below it.
using Bio = std::unique_ptr<BIO, FreeBios>;

// `filter` on top of `rest`.
inline Bio chained(Bio filter, Bio rest) {
    BIO_push(filter.get(), rest.release());
    return filter;
}

// AES in CBC mode for a key of 16, 24 or 32 bytes; null for any other.
inline const EVP_CIPHER* aesCbc(size_t keyLength) {
    switch (keyLength) {
        case 16: return EVP_aes_128_cbc();
        case 24: return EVP_aes_192_cbc();
        case 32: return EVP_aes_256_cbc();
        default: return nullptr;
    }
}

}  // namespace dorvo
