#include "http_util/http_socket.h"

#include <ace/ACE.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>

#include "base/interrupter.h"

namespace dorvo {

HTTP_Socket::HTTP_Socket(ACE_SOCK_Stream& stream) : stream_(stream), asked_(GetTickCount64()) {}

bool HTTP_Socket::must_stop() {
    asked_ = GetTickCount64();
    if (interrupter_ != nullptr && interrupter_->interrupted()) {
        SetLastError(ERROR_CANCELLED);
        return true;
    }
    return false;
}

int HTTP_Socket::wait_slice(bool to_read) {
    if (GetTickCount64() - asked_ >= 1000 && must_stop()) {
        return -1;
    }
    const ACE_Time_Value slice(1);
    if (ACE::handle_ready(stream_.get_handle(), &slice, to_read, !to_read, false) != -1) {
        return 1;
    }
    if (errno != ETIME) {
        SetLastError(error_of_ace());
        return -1;
    }
    return must_stop() ? -1 : 0;
}

bool HTTP_Socket::wait_readable() {
    int ready = 0;
    while (ready == 0) {
        ready = wait_slice(true);
    }
    return ready > 0;
}

int64_t HTTP_Socket::recv(void* buffer, size_t size) {
    for (;;) {
        const ssize_t got = stream_.recv(buffer, size);
        if (got >= 0) {
            return got;
        }
        const uint32_t error = error_of_ace();
        if (error != WSAEWOULDBLOCK) {
            SetLastError(error);
            return -1;
        }
        if (!wait_readable()) {
            return -1;
        }
    }
}

bool HTTP_Socket::send_all(iovec* pieces, size_t count, uint64_t timeout_ms) {
    constexpr size_t pieces_a_call = 256;
    uint64_t progress = 0;
    for (;;) {
        while (count > 0 && pieces->iov_len == 0) {
            ++pieces;
            --count;
        }
        if (count == 0) {
            return true;
        }
        const ssize_t sent =
            stream_.sendv(pieces, static_cast<int>(std::min(count, pieces_a_call)));
        if (sent < 0) {
            const uint32_t error = error_of_ace();
            if (error != WSAEWOULDBLOCK) {
                SetLastError(error);
                return false;
            }
            const uint64_t now = GetTickCount64();
            progress = progress == 0 ? now : progress;
            const int ready = wait_slice(false);
            if (ready == 0 && GetTickCount64() - progress >= timeout_ms) {
                SetLastError(WSAETIMEDOUT);
                return false;
            }
            if (ready < 0) {
                return false;
            }
            continue;
        }
        progress = 0;
        auto left = static_cast<u_long>(sent);
        while (left > 0) {
            const u_long step = std::min(left, pieces->iov_len);
            pieces->iov_base += step;
            pieces->iov_len -= step;
            left -= step;
            if (pieces->iov_len == 0) {
                ++pieces;
                --count;
            }
        }
    }
}

uint32_t HTTP_Socket::error_of_ace() {
    const int error = errno;
    if (error == 0) {
        return WSAEDISCON;
    }
    return error == ETIME ? WSAETIMEDOUT : static_cast<uint32_t>(error);
}

}  // namespace dorvo
