// What both floors do with the bytes of a file: deflate and encrypt, and the way back.
//
// An object holds its buffers and belongs to one thread. Failures throw as in floor_client.h.
#pragma once

#include "floor_client.h"
// The header brings winsock2.h, which stands before all others of Windows.
#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace dorvo::bench {

// Which level the next block of a file deserves: after one that did not shrink, ever more blocks
// (up to 128) are stored before the next try.
class NoiseDetector {
public:
    int level() const { return stored_ < skip_ ? 0 : 6; }

    void saw(std::uint64_t in, std::uint64_t out) {
        if (level() == 0) {
            ++stored_;
        } else if (out >= in) {
            skip_ = skip_ == 0 ? 1 : std::min(2 * skip_, 128);
            stored_ = 0;
        } else {
            skip_ = stored_ = 0;
        }
    }

private:
    int skip_ = 0, stored_ = 0;
};

class Encoder {
public:
    Encoder() { EVP_CIPHER_CTX_set_padding(cipher_, 1); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    ~Encoder() { EVP_CIPHER_CTX_free(cipher_); }

    // The package of a file, given to sink(data, size) piece by piece.
    template <class Sink>
    void encode(const std::wstring& path, Sink sink) {
        HANDLE in = openFile(path, GENERIC_READ, OPEN_EXISTING);
        EVP_EncryptInit_ex(cipher_, EVP_aes_128_cbc(), nullptr, key.data(), iv.data());
        z_stream deflater{};
        deflateInit(&deflater, 6);
        NoiseDetector noise;
        int flush = Z_BLOCK;
        while (flush != Z_FINISH) {
            DWORD got = 0;
            if (!ReadFile(in, plain_.data(), static_cast<DWORD>(plain_.size()), &got, nullptr))
                fail("cannot read " + utf8(path));
            if (got == 0)
                flush = Z_FINISH;
            const uLong before = deflater.total_out;
            room(deflater);
            deflateParams(&deflater, noise.level(), Z_DEFAULT_STRATEGY);
            deflater.next_in = plain_.data();
            deflater.avail_in = got;
            deflate(&deflater, flush);
            seal(deflater, sink);
            while (deflater.avail_out == 0) {
                room(deflater);
                deflate(&deflater, flush);
                seal(deflater, sink);
            }
            noise.saw(got, deflater.total_out - before);
        }
        deflateEnd(&deflater);
        int size = 0;
        EVP_EncryptFinal_ex(cipher_, sealed_.data(), &size);
        sink(sealed_.data(), static_cast<std::size_t>(size));
        CloseHandle(in);
    }

private:
    void room(z_stream& deflater) {
        deflater.next_out = deflated_.data();
        deflater.avail_out = static_cast<uInt>(deflated_.size());
    }

    // Encrypts what the deflater has put out.
    template <class Sink>
    void seal(const z_stream& deflater, Sink& sink) {
        int size = 0;
        EVP_EncryptUpdate(cipher_, sealed_.data(), &size, deflated_.data(),
                          static_cast<int>(deflated_.size() - deflater.avail_out));
        sink(sealed_.data(), static_cast<std::size_t>(size));
    }

    EVP_CIPHER_CTX* cipher_ = EVP_CIPHER_CTX_new();
    std::vector<unsigned char> plain_ = std::vector<unsigned char>(65536),
                               deflated_ = std::vector<unsigned char>(65536),
                               sealed_ = std::vector<unsigned char>(65536 + 32);
};

class Decoder {
public:
    Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() { EVP_CIPHER_CTX_free(cipher_); }

    // read(data, size) gives the next piece of the package, at most that much, and 0 at its end.
    // Gives how many bytes were written to `out`.
    template <class Source>
    std::uint64_t decode(Source read, HANDLE out, bool compressed) {
        EVP_DecryptInit_ex(cipher_, EVP_aes_128_cbc(), nullptr, key.data(), iv.data());
        z_stream inflater{};
        inflateInit(&inflater);
        std::uint64_t bytes = 0;
        for (std::size_t got = 1; got != 0;) {
            got = read(sealed_.data(), sealed_.size());
            int size = 0;
            if (got != 0)
                EVP_DecryptUpdate(cipher_, deflated_.data(), &size, sealed_.data(),
                                  static_cast<int>(got));
            else if (EVP_DecryptFinal_ex(cipher_, deflated_.data(), &size) != 1)
                fail("does not decrypt");
            bytes += compressed ? inflateTo(out, inflater, size)
                                : write(out, deflated_.data(), static_cast<std::size_t>(size));
        }
        inflateEnd(&inflater);
        return bytes;
    }

private:
    std::uint64_t inflateTo(HANDLE out, z_stream& inflater, int size) {
        std::uint64_t bytes = 0;
        inflater.next_in = deflated_.data();
        inflater.avail_in = static_cast<uInt>(size);
        do {
            inflater.next_out = plain_.data();
            inflater.avail_out = static_cast<uInt>(plain_.size());
            const int result = inflate(&inflater, Z_NO_FLUSH);
            if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
                fail("does not inflate");
            bytes += write(out, plain_.data(), plain_.size() - inflater.avail_out);
        } while (inflater.avail_out == 0);
        return bytes;
    }

    EVP_CIPHER_CTX* cipher_ = EVP_CIPHER_CTX_new();
    std::vector<unsigned char> sealed_ = std::vector<unsigned char>(65536),
                               deflated_ = std::vector<unsigned char>(65536 + 32),
                               plain_ = std::vector<unsigned char>(65536);
};

}  // namespace dorvo::bench
