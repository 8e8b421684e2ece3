#include "scheduler/iocp_dispatcher.h"

template class ATL::CComSingleton<dorvo::Iocp_Dispatcher, ATL::CComAutoCriticalSection>;

namespace dorvo {

Iocp_Dispatcher* Iocp_Dispatcher::instance() {
    return ATL::CComSingleton<Iocp_Dispatcher, ATL::CComAutoCriticalSection>::instance();
}

bool IocpDispatherWrapper::open() {
    return Iocp_Dispatcher::instance()->open();
}

bool IocpDispatherWrapper::activate() {
    return Iocp_Dispatcher::instance()->activate();
}

bool IocpDispatherWrapper::close() {
    return Iocp_Dispatcher::instance()->close();
}

bool IocpDispatherWrapper::wait() {
    return Iocp_Dispatcher::instance()->wait();
}

bool IocpDispatherWrapper::notifyTimeChange() {
    return Iocp_Dispatcher::instance()->notify_time_change();
}

bool IocpDispatherWrapper::notifyWake() {
    return Iocp_Dispatcher::instance()->notify_wake();
}

}  // namespace dorvo
