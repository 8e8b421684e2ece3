#include "face/jobmodule.h"

#include <atomic>

#include "base/last_error.h"
#include "base/log.h"
#include "http_util/http_connections.h"
#include "job/jobcmdqueue.h"
#include "job/jobmanager.h"
#include "job/jobplanner.h"
#include "scheduler/iocp_dispatcher.h"

namespace dorvo {
namespace {

JobManagerImpl& manager() {
    return *ATL::CComSingleton<JobManagerImpl, ATL::CComAutoCriticalSection>::instance();
}

// The command queue has ended for good.
std::atomic<bool> closed = false;

}  // namespace

bool openJobModule(DueTimes dueTimes) {
    if (closed) {
        return logFailed(ERROR_INVALID_STATE,
                         "Failed to open the job module, this process has closed it.\n");
    }
    if (!IocpDispatherWrapper::open()) {
        return false;
    }
    if (!IocpDispatherWrapper::activate()) {
        LastErrorGuard keep;
        IocpDispatherWrapper::close();
        return false;
    }
    if (dueTimes == DueTimes::left) {
        jobSchedules().stop();
    }
    return manager().open();
}

void closeJobModule() {
    closed = true;
    // First what could start a run, then the runs, then the thread that announces their end.
    jobSchedules().stop();
    JobCmdQueue::instance()->stop();
    manager().close();
    ATL::CComSingleton<HTTP_Connections, ATL::CComAutoCriticalSection>::instance()->stop();
    IocpDispatherWrapper::close();
}

}  // namespace dorvo
