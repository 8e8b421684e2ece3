#include "settings/encodedtext.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base/bio_chain.h"

namespace dorvo {
namespace {

constexpr size_t ivLength = 16;

[[noreturn]] void fail(const char* what) {
    ERR_clear_error();
    throw std::runtime_error(what);
}

Bio made(BIO* bio) {
    if (bio == nullptr) {
        fail("out of memory");
    }
    return Bio(bio);
}

Bio base64On(Bio memory) {
    Bio base64 = made(BIO_new(BIO_f_base64()));
    BIO_set_flags(base64.get(), BIO_FLAGS_BASE64_NO_NL);
    return chained(std::move(base64), std::move(memory));
}

Bio aesOn(Bio memory, ByteSpan key, ByteSpan iv, bool encrypt) {
    const EVP_CIPHER* const cipher = aesCbc(key.size());
    if (cipher == nullptr || iv.size() != ivLength) {
        fail("incorrect key or iv size");
    }
    Bio aes = made(BIO_new(BIO_f_cipher()));
    if (BIO_set_cipher(aes.get(), cipher, key.data(), iv.data(), encrypt ? 1 : 0) != 1) {
        fail("the cipher cannot be set");
    }
    return chained(std::move(aes), std::move(memory));
}

Bio reading(const std::string& bytes) {
    return made(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

Bio memory() {
    return made(BIO_new(BIO_s_mem()));
}

// Writes everything through the chain and gives what has reached the memory at its end.
std::string written(const Bio& chain, const std::string& bytes) {
    size_t count = 0;
    if ((!bytes.empty() && BIO_write_ex(chain.get(), bytes.data(), bytes.size(), &count) != 1) ||
        count != bytes.size() || BIO_flush(chain.get()) != 1) {
        fail("writing through the chain failed");
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(chain.get(), &data);
    return {data, static_cast<size_t>(size)};
}

std::string readAll(const Bio& chain) {
    std::string bytes;
    std::array<char, 4096> piece{};
    for (;;) {
        const int count = BIO_read(chain.get(), piece.data(), static_cast<int>(piece.size()));
        if (count <= 0) {
            return bytes;
        }
        bytes.append(piece.data(), static_cast<size_t>(count));
    }
}

// The number of bytes that a line of Base64 stands for. OpenSSL stops in silence at what it does
// not know, so the text is looked at before.
size_t decodedLength(std::string_view text) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t end = text.find_first_not_of(alphabet);
    const std::string_view padding =
        end == std::string_view::npos ? std::string_view() : text.substr(end);
    if (text.size() % 4 != 0 || (!padding.empty() && padding != "=" && padding != "==")) {
        fail("the text is not Base64");
    }
    return text.size() / 4 * 3 - padding.size();
}

}  // namespace

std::string encodeBase64(const std::string& bytes) {
    return written(base64On(memory()), bytes);
}

std::string decodeBase64(const std::string& text) {
    const size_t length = decodedLength(text);
    std::string bytes = readAll(base64On(reading(text)));
    if (bytes.size() != length) {
        fail("the text is not Base64");
    }
    return bytes;
}

std::string encodeText(const std::string& text, ByteSpan key, ByteSpan iv) {
    return encodeBase64(written(aesOn(memory(), key, iv, true), text));
}

std::string decodeText(const std::string& encoded, ByteSpan key, ByteSpan iv) {
    const std::string cipherText = decodeBase64(encoded);
    if (cipherText.empty() || cipherText.size() % ivLength != 0) {
        fail("the ciphertext is cut off");
    }
    const Bio aes = aesOn(reading(cipherText), key, iv, false);
    std::string text = readAll(aes);
    if (BIO_get_cipher_status(aes.get()) != 1) {
        fail("the ciphertext is damaged, or was made with another key");
    }
    return text;
}

std::string randomBytes(size_t count) {
    std::string bytes(count, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) != 1) {
        fail("no random bytes");
    }
    return bytes;
}

}  // namespace dorvo
