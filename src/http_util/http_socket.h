// Waits, sends and receives on one connection's socket, with the stop of the job in mind.
//
// The socket does not block. Waiting goes in slices of a second, and once a second the interrupter
// is asked, be it that bytes trickle; when it says stop, the call fails with 1223. All failures
// leave a Winsock or Win32 code as the thread's last error. One thread at a time.
#pragma once

#include <ace/SOCK_Stream.h>

#include <cstddef>
#include <cstdint>

namespace dorvo {

class interrupter;

class HTTP_Socket {
public:
    // `stream` is borrowed.
    explicit HTTP_Socket(ACE_SOCK_Stream& stream);

    // Borrowed, may be null.
    void set_interrupter(const interrupter* interrupter) { interrupter_ = interrupter; }

    // Waits until there is something to receive, or the end. No limit of time.
    bool wait_readable();

    // What is there, up to `size` bytes; 0 when the peer has closed; -1 for a failure.
    int64_t recv(void* buffer, size_t size);

    // Sends all pieces, as one gathered write as long as the system takes it, and changes them on
    // the way. Fails with 10060 when nothing goes out for that long.
    bool send_all(iovec* pieces, size_t count, uint64_t timeout_ms);

    // The code of the ACE call that just failed, as Winsock or Windows numbers it.
    static uint32_t error_of_ace();

private:
    // One slice of waiting: 1 ready, 0 not yet, -1 failed or interrupted.
    int wait_slice(bool to_read);
    bool must_stop();

    ACE_SOCK_Stream& stream_;
    const interrupter* interrupter_ = nullptr;
    uint64_t asked_;  // when the interrupter was, in milliseconds since the system's start
};

}  // namespace dorvo
