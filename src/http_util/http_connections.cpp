#include "http_util/http_connections.h"

#include <ace/Guard_T.h>

#include "base/log.h"

namespace dorvo {
namespace {

HTTP_Connector& make_connector() {
    startAce();
    return *new HTTP_Connector;
}

}  // namespace

int HTTP_Connect_Strategy::connect_svc_handler_i(HTTP_Svc_Handler*& handler,
                                                 const ACE_INET_Addr& remote,
                                                 ACE_Time_Value* timeout,
                                                 const ACE_INET_Addr& local, bool reuse, int flags,
                                                 int perms, int& found) {
    REFCOUNTED_HASH_RECYCLABLE_ADDRESS address(remote);
    CONNECTION_MAP_ENTRY* entry = find_quiet(address);
    found = entry != nullptr ? 1 : 0;
    if (entry == nullptr) {
        HTTP_Svc_Handler* fresh = nullptr;
        if (make_svc_handler(fresh) == -1) {
            return -1;
        }
        if (new_connection(fresh, remote, timeout, local, reuse, flags, perms) == 0) {
            entry = keep(address, *fresh);
        }
        if (entry == nullptr) {
            const ACE_Errno_Guard keep_error(errno);
            fresh->close();
            return -1;
        }
        assign_recycler(fresh, this, entry);
    }
    entry->ext_id_.recycle_state(ACE_RECYCLABLE_BUSY);
    handler = entry->int_id_;
    return 0;
}

HTTP_Connect_Strategy::CONNECTION_MAP_ENTRY* HTTP_Connect_Strategy::find_quiet(
    REFCOUNTED_HASH_RECYCLABLE_ADDRESS& address) {
    CONNECTION_MAP_ENTRY* entry = nullptr;
    while (find(address, entry) == 0) {
        if (entry->int_id_->quiet()) {
            return entry;
        }
        discard(entry);
    }
    return nullptr;
}

// Another thread may have put a connection to rest while the lock was open. The map then takes its
// entry for ours, so that one has to go first.
HTTP_Connect_Strategy::CONNECTION_MAP_ENTRY* HTTP_Connect_Strategy::keep(
    REFCOUNTED_HASH_RECYCLABLE_ADDRESS& address, HTTP_Svc_Handler& fresh) {
    CONNECTION_MAP_ENTRY* entry = nullptr;
    int bound = 0;
    while ((bound = connection_map_.bind(address, &fresh, entry)) == 1) {
        discard(entry);
    }
    return bound == 0 ? entry : nullptr;
}

void HTTP_Connect_Strategy::close_idle() {
    ACE_Guard<ACE_Thread_Mutex> guard(*lock_);
    auto next = connection_map_.begin();
    while (next != connection_map_.end()) {
        CONNECTION_MAP_ENTRY* const entry = &*next;
        ++next;
        if (entry->ext_id_.recycle_state() == ACE_RECYCLABLE_IDLE_AND_PURGABLE) {
            discard(entry);
        }
    }
}

size_t HTTP_Connect_Strategy::count() {
    ACE_Guard<ACE_Thread_Mutex> guard(*lock_);
    return connection_map_.current_size();
}

// The handler must not look for its entry itself: the lock is held.
void HTTP_Connect_Strategy::discard(CONNECTION_MAP_ENTRY* entry) {
    entry->int_id_->recycler(nullptr, nullptr);
    entry->int_id_->close();
    purge_i(entry);
}

HTTP_Connections::HTTP_Connections() : connector_(make_connector()) {}

void HTTP_Connections::stop() {
    connector_.connections().close_idle();
}

size_t HTTP_Connections::count() {
    return connector_.connections().count();
}

}  // namespace dorvo

template class ATL::CComSingleton<dorvo::HTTP_Connections, ATL::CComAutoCriticalSection>;
