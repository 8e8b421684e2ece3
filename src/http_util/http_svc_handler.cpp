#include "http_util/http_svc_handler.h"

#include <ace/ACE.h>

#include <mstcpip.h>

namespace dorvo {

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

}  // namespace dorvo
