// The error codes about a user's encryption key, and their words.
//
// They stand beside the platform's codes as a thread's last error. The mark is a bit that neither
// Win32 and socket codes nor marked HTTP statuses have.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

constexpr uint32_t keyErrorMark = 0x04000000;

// The storage server knows a key of the user, and this machine has none.
constexpr uint32_t errorKeyMissing = keyErrorMark | 1;
// The storage server, or a backup in a folder, knows another key than those of this machine.
constexpr uint32_t errorKeyForeign = keyErrorMark | 2;
// Of a recovery file: it cannot be opened with this passphrase;
constexpr uint32_t errorWrongPassphrase = keyErrorMark | 3;
// it is none, or it is damaged;
constexpr uint32_t errorRecoveryFileDamaged = keyErrorMark | 4;
// it holds another user's key.
constexpr uint32_t errorRecoveryFileOfOther = keyErrorMark | 5;

constexpr bool isKeyError(uint32_t code) {
    return (code & ~uint32_t{0xFF}) == keyErrorMark;
}

// What has happened and what to do about it, without a full stop. `user` is whose key it is; empty
// where that is not known. Pure.
std::string keyErrorText(uint32_t code, const std::string& user = {});

}  // namespace dorvo
