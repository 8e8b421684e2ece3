#include "http_util/http_svc_handler.h"

#include <ace/ACE.h>
#include <ace/OS_NS_errno.h>

#include <mstcpip.h>

#include <algorithm>

#include "base/interrupter.h"

namespace dorvo {
namespace {

constexpr DWORD sliceMs = 1000;

}  // namespace

HTTP_Svc_Handler::HTTP_Svc_Handler(ACE_Thread_Manager*)
    : ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH>(nullptr, nullptr, nullptr),
      received_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

int HTTP_Svc_Handler::open(void*) {
    if (peer().enable(ACE_NONBLOCK) == -1) {
        return -1;
    }
    // A peer that vanished without a word is found out in a minute or two instead of hours. Where
    // the system cannot do this, the connection is usable all the same.
    constexpr u_long firstProbeMs = 60'000;
    constexpr u_long nextProbeMs = 5'000;
    tcp_keepalive probes{1, firstProbeMs, nextProbeMs};
    DWORD returned = 0;
    WSAIoctl(reinterpret_cast<SOCKET>(get_handle()), SIO_KEEPALIVE_VALS, &probes, sizeof(probes),
             nullptr, 0, &returned, nullptr, nullptr);
    return 0;
}

bool HTTP_Svc_Handler::quiet() const {
    return ACE::handle_ready(get_handle(), &ACE_Time_Value::zero, true, false, false) == -1 &&
           errno == ETIME;
}

void HTTP_Svc_Handler::set_interrupter(const interrupter* interrupter) {
    interrupter_ = interrupter;
    asked_ = GetTickCount64();
}

bool HTTP_Svc_Handler::must_stop() {
    asked_ = GetTickCount64();
    if (interrupter_ != nullptr && interrupter_->interrupted()) {
        SetLastError(ERROR_CANCELLED);
        return true;
    }
    return false;
}

int HTTP_Svc_Handler::wait_slice() {
    if (GetTickCount64() - asked_ >= sliceMs && must_stop()) {
        return -1;
    }
    const ACE_Time_Value slice(1);
    if (ACE::handle_ready(peer().get_handle(), &slice, false, true, false) != -1) {
        return 1;
    }
    if (errno != ETIME) {
        SetLastError(error_of_ace());
        return -1;
    }
    return must_stop() ? -1 : 0;
}

DWORD HTTP_Svc_Handler::slice(uint64_t began) const {
    if (patience_ms_ == 0) {
        return sliceMs;
    }
    const uint64_t end = began + patience_ms_;
    const uint64_t now = GetTickCount64();
    return now < end ? static_cast<DWORD>(std::min<uint64_t>(end - now, sliceMs)) : 0;
}

int64_t HTTP_Svc_Handler::wait_and_recv(void* buffer, size_t size) {
    if (GetTickCount64() - asked_ >= sliceMs && must_stop()) {
        return -1;
    }
    const auto socket = reinterpret_cast<SOCKET>(peer().get_handle());
    OVERLAPPED pending{};
    pending.hEvent = received_.get();
    WSABUF place{static_cast<u_long>(std::min<size_t>(size, MAXLONG)), static_cast<char*>(buffer)};
    DWORD got = 0;
    DWORD flags = 0;
    if (WSARecv(socket, &place, 1, &got, &flags, &pending, nullptr) == 0) {
        return got;
    }
    if (WSAGetLastError() != WSA_IO_PENDING) {
        return -1;
    }
    const uint64_t began = GetTickCount64();
    DWORD stopped = 0;
    while (stopped == 0 && WaitForSingleObject(received_.get(), slice(began)) == WAIT_TIMEOUT) {
        if (must_stop()) {
            stopped = ERROR_CANCELLED;
        } else if (patience_ms_ != 0 && GetTickCount64() - began >= patience_ms_) {
            stopped = WSAETIMEDOUT;
        }
    }
    if (stopped != 0) {
        CancelIoEx(peer().get_handle(), &pending);
    }
    // Bytes that came at the same moment are not lost: the buffer is in use until this returns.
    if (WSAGetOverlappedResult(socket, &pending, &got, TRUE, &flags) == 0) {
        if (stopped != 0) {
            SetLastError(stopped);
        }
        return -1;
    }
    return got;
}

bool HTTP_Svc_Handler::send_all(iovec* pieces, size_t count, uint64_t timeout_ms) {
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
        const ssize_t sent = peer().sendv(pieces, static_cast<int>(std::min(count, pieces_a_call)));
        if (sent < 0) {
            const uint32_t error = error_of_ace();
            if (error != WSAEWOULDBLOCK) {
                SetLastError(error);
                return false;
            }
            const uint64_t now = GetTickCount64();
            progress = progress == 0 ? now : progress;
            const int ready = wait_slice();
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

uint32_t HTTP_Svc_Handler::error_of_ace() {
    const int error = errno;
    if (error == 0) {
        return WSAEDISCON;
    }
    return error == ETIME ? WSAETIMEDOUT : static_cast<uint32_t>(error);
}

}  // namespace dorvo
