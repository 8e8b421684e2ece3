// One connection's socket, as ACE's service handler: waits, sends and receives, with the stop of
// the job in mind.
//
// Made and connected by HTTP_Connector, which keeps it in its cache from then on. Whoever was
// handed it ends with idle(), which leaves it to the next taker, or with close(), which closes the
// socket, takes it out of the cache and deletes it.
//
// The socket does not block. Waiting goes in slices of a second, and once a second the interrupter
// is asked, be it that bytes trickle; when it says stop, the call fails with 1223. All failures
// leave a Winsock or Win32 code as the thread's last error. One thread at a time.
#pragma once

#include <ace/Null_Mutex.h>
#include <ace/SOCK_Stream.h>
#include <ace/Svc_Handler.h>

#include <cstddef>
#include <cstdint>

#include "base/handle.h"

namespace dorvo {

class interrupter;

class HTTP_Svc_Handler : public ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH> {
public:
    // Works without thread manager and reactor: its user reads and writes by itself.
    explicit HTTP_Svc_Handler(ACE_Thread_Manager* = nullptr);

    // A new connection: the socket no longer blocks, and the system probes a silent peer.
    int open(void* connector) override;

    // Whom to ask while waiting; borrowed, may be null, as it has to be before idle().
    void set_interrupter(const interrupter* interrupter);
    // How long the peer may be silent while it is received from; 0, as at first, for ever.
    void set_patience(uint64_t ms) { patience_ms_ = ms; }

    // True while the peer neither sent anything nor closed, as it is between two exchanges.
    bool quiet() const;

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

    KernelHandle received_;                     // set when the pending receive is complete
    const interrupter* interrupter_ = nullptr;  // borrowed
    uint64_t patience_ms_ = 0;
    uint64_t asked_ = 0;  // when the interrupter was, in milliseconds since the system's start
};

}  // namespace dorvo
