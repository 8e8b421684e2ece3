// Has runs dropped that a storage could not be told of: when the process starts, when a job has
// been removed, and every hour while some are left. A job's own run tells, too.
//
// Its thread is there from the first call with something to tell until stop(). Any thread.
#pragma once

#include <windows.h>

#include <functional>
#include <mutex>

#include "base/api.h"
#include "base/handle.h"
#include "job/pendingdrops.h"

namespace dorvo {

class DORVO_JOB_API DropTeller {
public:
    // Has a run of the job dropped, and breaks that off when the event is set. False leaves the
    // last error.
    using Drop = std::function<bool(const JobDefinition&, const PendingDrop&, HANDLE stop)>;

    // An empty function asks the storages.
    explicit DropTeller(Drop drop = {});
    ~DropTeller() { stop(); }
    DropTeller(const DropTeller&) = delete;
    DropTeller& operator=(const DropTeller&) = delete;

    // Begins to tell what there is; does not wait for it.
    void wake();
    // Breaks off what can be broken off, and tells nothing more; does not wait for it.
    void signalStop();
    // The same, and returns once nothing is told any more, which takes as long as a server that is
    // not there.
    void stop();

private:
    static DWORD WINAPI body(void* self);
    void run();
    bool tellAll();
    bool tell(const std::wstring& definition, const PendingDrops& drops);

    const Drop drop_;
    const KernelHandle stopEvent_;  // manual reset
    const KernelHandle wakeEvent_;  // auto reset
    std::mutex lock_;               // guards what follows
    HANDLE thread_ = nullptr;
};

}  // namespace dorvo
