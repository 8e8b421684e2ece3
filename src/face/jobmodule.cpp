#include "face/jobmodule.h"

#include "base/last_error.h"
#include "http_util/http_connections.h"
#include "job/jobcmdqueue.h"
#include "job/jobmanager.h"
#include "scheduler/iocpdispatherwrapper.h"

namespace dorvo {
namespace {

JobManagerImpl& manager() {
    return *ATL::CComSingleton<JobManagerImpl, ATL::CComAutoCriticalSection>::instance();
}

}  // namespace

bool openJobModule() {
    if (!IocpDispatherWrapper::open()) {
        return false;
    }
    if (!IocpDispatherWrapper::activate()) {
        LastErrorGuard keep;
        IocpDispatherWrapper::close();
        return false;
    }
    return manager().open();
}

void closeJobModule() {
    // First what could start a run, then the runs, then the thread that announces their end.
    JobCmdQueue::instance()->stop();
    manager().close();
    ATL::CComSingleton<HTTP_Connections, ATL::CComAutoCriticalSection>::instance()->stop();
    IocpDispatherWrapper::close();
}

}  // namespace dorvo
