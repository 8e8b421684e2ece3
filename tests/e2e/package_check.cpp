// package_check KEYHEX IVHEX: opens stored packages with nothing of the project's own code.
// Standard input holds one package a line, its fields parted by tabs: compressed (0 or 1), the file
// that holds it, its offset and size there, the source file. Decrypts (AES-128-CBC), inflates, and
// compares each byte with the source. Prints a line for each package that differs and ends with 1
// when there was one.
#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes fromHex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

// Takes the plain bytes in pieces and compares them with a file's.
class Comparer {
public:
    explicit Comparer(const std::string& path) : file_(path, std::ios::binary) {
        if (!file_)
            throw std::runtime_error("no source file");
    }

    void take(const unsigned char* data, std::size_t size) {
        buffer_.resize(size);
        file_.read(buffer_.data(), static_cast<std::streamsize>(size));
        if (static_cast<std::size_t>(file_.gcount()) != size)
            throw std::runtime_error("longer than its source");
        for (std::size_t i = 0; i < size; ++i)
            if (static_cast<unsigned char>(buffer_[i]) != data[i])
                throw std::runtime_error("differs at byte " + std::to_string(offset_ + i));
        offset_ += size;
    }

    void end() {
        if (file_.peek() != std::ifstream::traits_type::eof())
            throw std::runtime_error("shorter than its source");
    }

private:
    std::ifstream file_;
    std::string buffer_;
    std::size_t offset_ = 0;
};

// zlib stream in, plain bytes to the comparer; demands exactly one whole stream.
class Inflater {
public:
    explicit Inflater(Comparer& comparer) : comparer_(comparer) {
        if (inflateInit(&stream_) != Z_OK)
            throw std::runtime_error("inflateInit failed");
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() { inflateEnd(&stream_); }

    void take(unsigned char* data, std::size_t size) {
        stream_.next_in = data;
        stream_.avail_in = static_cast<uInt>(size);
        while (stream_.avail_in != 0) {
            if (ended_)
                throw std::runtime_error("bytes after the compressed stream");
            step();
        }
    }

    void end() {
        while (!ended_)
            step();
    }

private:
    void step() {
        std::array<unsigned char, 65536> plain;
        stream_.next_out = plain.data();
        stream_.avail_out = static_cast<uInt>(plain.size());
        const int result = inflate(&stream_, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END)
            throw std::runtime_error("no whole zlib stream");
        comparer_.take(plain.data(), plain.size() - stream_.avail_out);
        ended_ = result == Z_STREAM_END;
    }

    Comparer& comparer_;
    z_stream stream_{};
    bool ended_ = false;
};

// Where a package lies.
struct Package {
    bool compressed = false;
    std::string file;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

void check(const Bytes& key, const Bytes& iv, const Package& package, const std::string& source) {
    std::ifstream file(package.file, std::ios::binary);
    if (!file.seekg(static_cast<std::streamoff>(package.offset)))
        throw std::runtime_error("no package");
    Comparer comparer(source);
    Inflater inflater(comparer);
    const auto pass = [&](unsigned char* data, int size) {
        if (package.compressed)
            inflater.take(data, static_cast<std::size_t>(size));
        else
            comparer.take(data, static_cast<std::size_t>(size));
    };

    const std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> cipher(EVP_CIPHER_CTX_new(),
                                                                            EVP_CIPHER_CTX_free);
    EVP_DecryptInit_ex(cipher.get(), EVP_aes_128_cbc(), nullptr, key.data(), iv.data());
    std::array<char, 65536> sealed;
    std::array<unsigned char, 65536 + 32> opened;
    int size = 0;
    for (std::uint64_t left = package.size; left != 0;) {
        const std::uint64_t part = std::min<std::uint64_t>(left, sealed.size());
        if (!file.read(sealed.data(), static_cast<std::streamsize>(part)))
            throw std::runtime_error("package ends early");
        EVP_DecryptUpdate(cipher.get(), opened.data(), &size,
                          reinterpret_cast<const unsigned char*>(sealed.data()),
                          static_cast<int>(part));
        pass(opened.data(), size);
        left -= part;
    }
    if (EVP_DecryptFinal_ex(cipher.get(), opened.data(), &size) != 1)
        throw std::runtime_error("does not decrypt");
    pass(opened.data(), size);
    if (package.compressed)
        inflater.end();
    comparer.end();
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "usage: package_check KEYHEX IVHEX <list\n";
        return 2;
    }
    const Bytes key = fromHex(arguments[1]);
    const Bytes iv = fromHex(arguments[2]);
    if (key.size() != 16 || iv.size() != 16) {
        std::cerr << "package_check: key and IV are 16 bytes each\n";
        return 2;
    }
    bool different = false;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream fields(line);
        std::string compressed, offset, size, source;
        Package package;
        std::getline(fields, compressed, '\t');
        std::getline(fields, package.file, '\t');
        std::getline(fields, offset, '\t');
        std::getline(fields, size, '\t');
        std::getline(fields, source);
        try {
            package.compressed = compressed == "1";
            package.offset = std::stoull(offset);
            package.size = std::stoull(size);
            check(key, iv, package, source);
        } catch (const std::exception& error) {
            different = true;
            std::cout << source << ": " << error.what() << '\n';
        }
    }
    return different ? 1 : 0;
}
