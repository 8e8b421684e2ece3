// The ACE service handler that owns one connection's socket.
//
// Made and connected by HTTP_Connector, which keeps it in its cache from then on. Whoever was
// handed it ends with idle(), which leaves it to the next taker, or with close(), which closes the
// socket, takes it out of the cache and deletes it.
#pragma once

#include <ace/Null_Mutex.h>
#include <ace/SOCK_Stream.h>
#include <ace/Svc_Handler.h>

namespace dorvo {

class HTTP_Svc_Handler : public ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH> {
public:
    // Works without thread manager and reactor: its user reads and writes by itself.
    explicit HTTP_Svc_Handler(ACE_Thread_Manager* = nullptr)
        : ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH>(nullptr, nullptr, nullptr) {}

    // A new connection: the socket no longer blocks, and the system probes a silent peer.
    int open(void* connector) override;

    // True while the peer neither sent anything nor closed, as it is between two exchanges.
    bool quiet() const;
};

}  // namespace dorvo
