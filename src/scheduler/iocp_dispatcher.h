// The one timer dispatcher of the process.
#pragma once

#include "base/singleton.h"
#include "scheduler/io_completion_port_ex.h"

namespace dorvo {

// Making it opens no port and starts no thread; its host does both and closes it before the process
// ends (IocpDispatherWrapper).
class Iocp_Dispatcher : public Io_Completion_Port_Ex {
public:
    static Iocp_Dispatcher* instance();
};

}  // namespace dorvo

extern template class ATL::CComSingleton<dorvo::Iocp_Dispatcher, ATL::CComAutoCriticalSection>;
