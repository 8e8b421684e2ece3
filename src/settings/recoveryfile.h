// The text of a recovery file: a user's 32 key bytes, sealed with a passphrase.
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
constexpr size_t recoverySaltSize = 16;
constexpr size_t recoveryNonceSize = 12;
constexpr size_t recoveryFileLimit = 16384;  // characters of a whole file

// Salt and nonce are random and never used twice.
std::string sealRecoveryFile(const std::string& user, const std::string& key,
                             const std::string& passphrase, const std::string& salt,
                             const std::string& nonce, RecoveryCost cost = {});

enum class RecoveryFile { opened, wrongPassphrase, damaged };

// Fills user and key only when the file could be opened. A file that asks for more memory or time
// than the format's bounds (128 MiB, four passes) is damaged, as is one of a later version.
RecoveryFile openRecoveryFile(const std::string& text, const std::string& passphrase,
                              std::string& user, std::string& key);

}  // namespace dorvo
