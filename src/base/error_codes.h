// The error codes that are ours. They stand beside the platform's as a thread's last error, each
// kind with a mark of its own that Win32 and socket codes do not have.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

// HTTP answers: the status with a mark.
constexpr uint32_t httpMark = 0x20010000;

constexpr uint32_t withHttpMark(uint32_t status) {
    return status | httpMark;
}
constexpr uint32_t withoutHttpMark(uint32_t code) {
    return code & ~httpMark;
}
// Any bit of the mark counts.
constexpr bool hasHttpMark(uint32_t code) {
    return (code & httpMark) != 0;
}
// The whole mark is needed.
constexpr bool isHttpStatus(uint32_t code) {
    return (code & httpMark) == httpMark;
}

// The storage had the bytes and has lost them: waiting brings nothing back.
constexpr uint32_t errorLostBytes = withHttpMark(410);

// A user's encryption key: a bit that marked HTTP statuses do not have either.
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
