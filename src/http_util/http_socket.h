// Waits, sends and receives on one connection's socket, with the stop of the job in mind.
//
// The socket does not block. Waiting goes in slices of a second, and once a second the interrupter
// is asked, be it that bytes trickle; when it says stop, the call fails with 1223. All failures
// leave a Winsock or Win32 code as the thread's last error. One thread at a time.
#pragma once

#include <ace/SOCK_Stream.h>

#include <cstddef>
#include <cstdint>

#include "base/handle.h"

namespace dorvo {

class interrupter;

class HTTP_Socket {
public:
    // `stream` is borrowed.
    explicit HTTP_Socket(ACE_SOCK_Stream& stream);

    // Borrowed, may be null.
    void set_interrupter(const interrupter* interrupter) { interrupter_ = interrupter; }

    // How long the peer may be silent while it is received from; 0, as at first, for ever.
    void set_patience(uint64_t ms) { patience_ms_ = ms; }

    // Waits until something is there and takes up to `size` bytes of it; 0 when the peer has
    // closed; -1 for a failure, that of a patience that is over with 10060. One receive stays
    // pending all the while: a slice that ends loses nothing, and no call is spent on asking
    // whether the socket is readable.
    int64_t wait_and_recv(void* buffer, size_t size);

    // Sends all pieces, as one gathered write as long as the system takes it, and changes them on
    // the way. Fails with 10060 when nothing goes out for that long.
    bool send_all(iovec* pieces, size_t count, uint64_t timeout_ms);

    // The code of the ACE call that just failed, as Winsock or Windows numbers it.
    static uint32_t error_of_ace();

private:
    // One slice of waiting for room to send: 1 there is, 0 not yet, -1 failed or interrupted.
    int wait_slice();
    bool must_stop();
    // Until the interrupter is asked, or the patience with a receive that began then is over.
    DWORD slice(uint64_t began) const;

    ACE_SOCK_Stream& stream_;  // borrowed
    KernelHandle received_;    // set when the pending receive is complete
    const interrupter* interrupter_ = nullptr;
    uint64_t patience_ms_ = 0;
    uint64_t asked_;  // when the interrupter was, in milliseconds since the system's start
};

}  // namespace dorvo
