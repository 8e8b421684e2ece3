// The error codes of HTTP answers: the status with a mark. Other codes are the platform's.
#pragma once

#include <cstdint>

namespace dorvo {

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

}  // namespace dorvo
