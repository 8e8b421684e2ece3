// The error codes that jobs keep: Win32 and socket codes as they are, HTTP statuses marked.
#pragma once

#include <cstdint>

namespace dorvo {

constexpr uint32_t httpMark = 0x20010000;

constexpr bool hasHttpMark(uint32_t code) {
    return (code & httpMark) != 0;
}
constexpr uint32_t withoutHttpMark(uint32_t code) {
    return code & ~httpMark;
}
constexpr uint32_t withHttpMark(uint32_t status) {
    return status | httpMark;
}

// Whether the network is at fault, so that another try may succeed. A refused connection is not.
bool isNetworkError(uint32_t code);

}  // namespace dorvo
