// The cache of connections, by server address.
//
// It adds to ACE's strategy that a connection which died or got stray bytes while it was idle is
// closed instead of handed out, and that two threads that connect to one server at a time keep
// their connections apart.
#pragma once

#include <ace/INET_Addr.h>
#include <ace/SOCK_Connector.h>
#include <ace/Strategies_T.h>
#include <ace/Thread_Mutex.h>

#include "http_util/http_svc_handler.h"

namespace dorvo {

class HTTP_Connect_Strategy
    : public ACE_Cached_Connect_Strategy<HTTP_Svc_Handler, ACE_SOCK_Connector, ACE_Thread_Mutex> {
public:
    // `creation` is borrowed.
    explicit HTTP_Connect_Strategy(ACE_Creation_Strategy<HTTP_Svc_Handler>& creation)
        : ACE_Cached_Connect_Strategy(&creation) {}

    // Closes the connections that nobody uses.
    void close_idle();
    // Connections that exist.
    size_t count();

protected:
    // Called with the cache's lock held, which it lets go of while it connects.
    int connect_svc_handler_i(HTTP_Svc_Handler*& handler, const ACE_INET_Addr& remote,
                              ACE_Time_Value* timeout, const ACE_INET_Addr& local, bool reuse,
                              int flags, int perms, int& found) override;

private:
    // The entry of an idle connection to the address that is still good, closing others; or null.
    CONNECTION_MAP_ENTRY* find_quiet(REFCOUNTED_HASH_RECYCLABLE_ADDRESS& address);
    // Puts a new connection into the map; null when it cannot.
    CONNECTION_MAP_ENTRY* keep(REFCOUNTED_HASH_RECYCLABLE_ADDRESS& address,
                               HTTP_Svc_Handler& fresh);
    void discard(CONNECTION_MAP_ENTRY* entry);
};

}  // namespace dorvo
