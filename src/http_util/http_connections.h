// The module's connections: ACE's cached connect strategy, the connector that hands out what it
// caches, and the one object of the process that has it.
//
// HTTP_Connections is reached through ATL::CComSingleton<HTTP_Connections>. Invokers take
// connections from it and give them back; any thread.
#pragma once

#include <ace/Connector.h>
#include <ace/INET_Addr.h>
#include <ace/SOCK_Connector.h>
#include <ace/Strategies_T.h>
#include <ace/Thread_Mutex.h>

#include <cstddef>

#include "base/singleton.h"
#include "http_util/http_svc_handler.h"

namespace dorvo {

// The cache of connections, by server address.
//
// It adds to ACE's strategy that a connection which died or got stray bytes while it was idle is
// closed instead of handed out, and that two threads that connect to one server at a time keep
// their connections apart.
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

// ACE's strategy connector, put together so that it hands out cached connections.
class HTTP_Connector : public ACE_Strategy_Connector<HTTP_Svc_Handler, ACE_SOCK_Connector> {
public:
    HTTP_Connector()
        : ACE_Strategy_Connector(nullptr, &nothing_, &strategy_, &no_activation_),
          creation_(nullptr, nullptr),
          strategy_(creation_) {}

    HTTP_Connect_Strategy& connections() { return strategy_; }

private:
    // The cached strategy makes and activates handlers; the connector itself must do neither.
    class Nothing : public ACE_Creation_Strategy<HTTP_Svc_Handler> {
    public:
        Nothing() : ACE_Creation_Strategy(nullptr, nullptr) {}
        int make_svc_handler(HTTP_Svc_Handler*&) override { return 0; }
    };

    Nothing nothing_;
    ACE_NOOP_Concurrency_Strategy<HTTP_Svc_Handler> no_activation_;
    ACE_Creation_Strategy<HTTP_Svc_Handler> creation_;
    HTTP_Connect_Strategy strategy_;
};

class DORVO_JOB_API HTTP_Connections {
public:
    HTTP_Connections();
    HTTP_Connections(const HTTP_Connections&) = delete;
    HTTP_Connections& operator=(const HTTP_Connections&) = delete;

    HTTP_Connector& connector() { return connector_; }

    // Closes the idle connections. Call it when the jobs have ended; may be called again, and the
    // connector goes on to work.
    void stop();

    // Connections that exist, idle or in use.
    size_t count();

private:
    HTTP_Connector& connector_;  // lives as long as the process: nothing is closed at its exit
};

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::HTTP_Connections, ATL::CComAutoCriticalSection>;
