#include "scheduler/iocp_dispatcher.h"

template class ATL::CComSingleton<dorvo::Iocp_Dispatcher, ATL::CComAutoCriticalSection>;

namespace dorvo {

Iocp_Dispatcher* Iocp_Dispatcher::instance() {
    return ATL::CComSingleton<Iocp_Dispatcher, ATL::CComAutoCriticalSection>::instance();
}

}  // namespace dorvo
