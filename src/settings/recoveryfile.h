// The text of a recovery file: all keys of a user, sealed with a passphrase.
//
// Values in, values out; salt and nonce come from outside. docs/formats/recovery-file.md has the
// format. Failures that are not the file's (no memory) throw std::runtime_error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace dorvo {

// What the passphrase is stretched with: scrypt takes 128 * n * r bytes of memory.
struct RecoveryCost {
    uint64_t n = 65536;  // a power of two
    uint64_t r = 8;
    uint64_t p = 1;
};

constexpr size_t recoveryKeySize = 32;
constexpr size_t recoveryKeyLimit = 64;  // keys of a file
constexpr size_t recoverySaltSize = 16;
constexpr size_t recoveryNonceSize = 12;
constexpr size_t recoveryFileLimit = 16384;  // characters of a whole file

// What is sealed. The keys stand one behind the other, 32 bytes each, the machine's own first;
// false when they are none or too many, or the user's name is empty or has a NUL or a line feed.
bool writeRecoveryContent(const std::string& user, const std::string& keys, std::string& content);
bool readRecoveryContent(const std::string& content, std::string& user, std::string& keys);

// Salt and nonce are random and never used twice.
std::string sealRecoveryFile(const std::string& user, const std::string& keys,
                             const std::string& passphrase, const std::string& salt,
                             const std::string& nonce, RecoveryCost cost = {});

enum class RecoveryFile { opened, wrongPassphrase, damaged };

// Fills user and keys only when the file could be opened. A file that asks for more memory or time
// than the format's bounds (128 MiB, four passes) is damaged, as is one of a later version.
RecoveryFile openRecoveryFile(const std::string& text, const std::string& passphrase,
                              std::string& user, std::string& keys);

}  // namespace dorvo
