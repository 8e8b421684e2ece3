#include "settings/recoveryfile.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <array>
#include <memory>
#include <span>
#include <stdexcept>
#include <string_view>

#include "base/md5.h"
#include "json_spirit/json_spirit.h"
#include "settings/encodedtext.h"
#include "settings/wipe.h"

namespace dorvo {
namespace {

constexpr const char* formatName = "dorvo recovery file";
constexpr int formatVersion = 1;
constexpr std::string_view sealedName = "dorvo recovery file 1";  // authenticated with the seal
constexpr size_t tagSize = 16;
constexpr size_t cipherKeySize = 32;

// A crafted file must not take the machine's memory: these are 128 MiB.
constexpr uint64_t mostN = uint64_t{1} << 17;
constexpr uint64_t leastR = 2;
constexpr uint64_t mostR = 8;
constexpr uint64_t mostP = 4;
constexpr uint64_t memoryLimit = uint64_t{256} << 20;

bool acceptable(const RecoveryCost& cost) {
    return cost.n >= 2 && cost.n <= mostN && (cost.n & (cost.n - 1)) == 0 && cost.r >= leastR &&
           cost.r <= mostR && cost.p >= 1 && cost.p <= mostP;
}

[[noreturn]] void fail(const char* what) {
    ERR_clear_error();
    throw std::runtime_error(what);
}

unsigned char* bytesOf(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}
const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

struct FreeCipher {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

// AES-256-GCM under the stretched passphrase, one way or the other.
class Seal {
public:
    Seal(const std::string& passphrase, const std::string& salt, const std::string& nonce,
         const RecoveryCost& cost, bool sealing)
        : context_(EVP_CIPHER_CTX_new()), sealing_(sealing ? 1 : 0) {
        std::string key(cipherKeySize, '\0');
        const WipeAtEnd wiped(key);
        if (context_ == nullptr ||
            EVP_PBE_scrypt(passphrase.data(), passphrase.size(), bytesOf(std::string_view(salt)),
                           salt.size(), cost.n, cost.r, cost.p, memoryLimit, bytesOf(key),
                           key.size()) != 1) {
            fail("the passphrase cannot be stretched");
        }
        int count = 0;
        if (EVP_CipherInit_ex(context_.get(), EVP_aes_256_gcm(), nullptr, bytesOf(key),
                              bytesOf(std::string_view(nonce)), sealing_) != 1 ||
            EVP_CipherUpdate(context_.get(), nullptr, &count, bytesOf(sealedName),
                             static_cast<int>(sealedName.size())) != 1) {
            fail("the cipher cannot be set");
        }
    }

    void pass(std::string_view from, std::string& to) {
        int count = 0;
        to.resize(from.size());
        if (EVP_CipherUpdate(context_.get(), bytesOf(to), &count, bytesOf(from),
                             static_cast<int>(from.size())) != 1) {
            fail("the cipher failed");
        }
    }
    // False when what passed was not sealed like this.
    bool finish() {
        int count = 0;
        std::array<unsigned char, EVP_MAX_BLOCK_LENGTH> rest{};
        const bool good = EVP_CipherFinal_ex(context_.get(), rest.data(), &count) == 1;
        ERR_clear_error();
        return good;
    }
    std::string tag() {
        std::string tag(tagSize, '\0');
        if (EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, tagSize, tag.data()) != 1) {
            fail("the seal cannot be made");
        }
        return tag;
    }
    void expect(const std::string& tag) {
        if (EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG, tagSize,
                                const_cast<char*>(tag.data())) != 1) {
            fail("the seal cannot be set");
        }
    }

private:
    std::unique_ptr<EVP_CIPHER_CTX, FreeCipher> context_;
    int sealing_;
};

// Tells damage from a wrong passphrase; it protects nothing.
std::string checksum(const json_spirit::Object& file) {
    json_spirit::Object rest = file;
    rest.erase("check");
    const std::string text = json_spirit::write(json_spirit::Value(rest));
    return Md5::of(std::as_bytes(std::span(text)));
}

std::string textOf(const json_spirit::Object& file, const char* name) {
    return json_spirit::object_get_str_or_throw(file, name);
}

struct Sealed {
    RecoveryCost cost;
    std::string salt;
    std::string nonce;
    std::string bytes;  // ciphertext, then the tag
};

// Throws when it is not of its shape.
Sealed readFile(const std::string& text) {
    json_spirit::Value document;
    json_spirit::read_or_throw(text, document);
    const json_spirit::Object& file = document.get_obj();
    if (textOf(file, "format") != formatName || file.at("version").get_int() != formatVersion ||
        textOf(file, "check") != checksum(file)) {
        throw std::runtime_error("not a recovery file");
    }
    Sealed sealed{{file.at("n").get_uint64(), file.at("r").get_uint64(), file.at("p").get_uint64()},
                  decodeBase64(textOf(file, "salt")),
                  decodeBase64(textOf(file, "nonce")),
                  decodeBase64(textOf(file, "sealed"))};
    if (!acceptable(sealed.cost) || sealed.salt.size() != recoverySaltSize ||
        sealed.nonce.size() != recoveryNonceSize || sealed.bytes.size() <= tagSize) {
        throw std::runtime_error("a value is out of its bounds");
    }
    return sealed;
}

bool read(const std::string& text, Sealed& sealed) {
    if (text.size() > recoveryFileLimit) {
        return false;
    }
    try {
        sealed = readFile(text);
        return true;
    } catch (const json_spirit::Error_position&) {
        return false;
    } catch (const std::logic_error&) {  // a member is missing
        return false;
    } catch (const std::runtime_error&) {
        return false;
    }
}

bool fits(const std::string& user, size_t keyBytes) {
    return keyBytes != 0 && keyBytes % recoveryKeySize == 0 &&
           keyBytes / recoveryKeySize <= recoveryKeyLimit && !user.empty() &&
           user.find_first_of(std::string_view("\0\n", 2)) == std::string::npos;
}

}  // namespace

bool writeRecoveryContent(const std::string& user, const std::string& keys, std::string& content) {
    if (!fits(user, keys.size())) {
        return false;
    }
    content.reserve(1 + keys.size() + user.size());
    content.assign(1, static_cast<char>(keys.size() / recoveryKeySize));
    content += keys;
    content += user;
    return true;
}

bool readRecoveryContent(const std::string& content, std::string& user, std::string& keys) {
    if (content.empty()) {
        return false;
    }
    const size_t keyBytes = recoveryKeySize * static_cast<unsigned char>(content[0]);
    if (content.size() <= 1 + keyBytes || !fits(content.substr(1 + keyBytes), keyBytes)) {
        return false;
    }
    keys.assign(content, 1, keyBytes);
    user.assign(content, 1 + keyBytes);
    return true;
}

std::string sealRecoveryFile(const std::string& user, const std::string& keys,
                             const std::string& passphrase, const std::string& salt,
                             const std::string& nonce, RecoveryCost cost) {
    std::string plain;
    const WipeAtEnd wiped(plain);
    if (!writeRecoveryContent(user, keys, plain)) {
        fail("the keys or the user's name do not fit into a recovery file");
    }
    Seal seal(passphrase, salt, nonce, cost, true);
    std::string sealed;
    seal.pass(plain, sealed);
    if (!seal.finish()) {
        fail("the cipher failed");
    }
    sealed += seal.tag();
    json_spirit::Object file{{"format", formatName},
                             {"version", formatVersion},
                             {"n", cost.n},
                             {"r", cost.r},
                             {"p", cost.p},
                             {"salt", encodeBase64(salt)},
                             {"nonce", encodeBase64(nonce)},
                             {"sealed", encodeBase64(sealed)}};
    file["check"] = checksum(file);
    std::string text = json_spirit::write_formatted(json_spirit::Value(file)) + "\n";
    if (text.size() > recoveryFileLimit) {
        throw std::runtime_error("the user's name is too long");
    }
    return text;
}

RecoveryFile openRecoveryFile(const std::string& text, const std::string& passphrase,
                              std::string& user, std::string& keys) {
    Sealed sealed;
    if (!read(text, sealed)) {
        return RecoveryFile::damaged;
    }
    const std::string_view bytes = sealed.bytes;
    Seal seal(passphrase, sealed.salt, sealed.nonce, sealed.cost, false);
    std::string plain;
    const WipeAtEnd wiped(plain);
    seal.pass(bytes.substr(0, bytes.size() - tagSize), plain);
    seal.expect(std::string(bytes.substr(bytes.size() - tagSize)));
    if (!seal.finish()) {
        return RecoveryFile::wrongPassphrase;
    }
    return readRecoveryContent(plain, user, keys) ? RecoveryFile::opened : RecoveryFile::damaged;
}

}  // namespace dorvo
