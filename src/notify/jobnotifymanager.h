// Brings events from any thread to the observers, over the dispatcher's completion port.
//
// Events are delivered on the dispatcher's thread in the order in which they were posted. An
// observer gets an event when its user or the event's is empty, or when both are the same.
#pragma once

#include <memory>
#include <set>

#include "base/api.h"
#include "base/singleton.h"
#include "notify/jobnotifyobserver.h"
#include "notify/notify_event.h"
#include "scheduler/io_completion_port.h"

namespace dorvo {

class DORVO_JOB_API JobNotifyManagerImpl : public Io_Completion_Port::Event {
public:
    // Takes the event when it returns true; on false, with the thread's last error, it is still the
    // caller's. Any thread, any lock held; does not block.
    bool post(Notify_Event* event);

    // Observers are borrowed until they are unregistered; unregisterObserver waits for a delivery
    // in progress. False when the observer is registered already, or is not. Not from a delivery.
    bool registerObserver(JobNotifyObserver* observer);
    bool unregisterObserver(JobNotifyObserver* observer);

    void completion(DWORD bytes, ULONG_PTR key, OVERLAPPED* event) override;

private:
    CriticalSection lock_;  // guards observers_ and serialises deliveries
    std::set<JobNotifyObserver*> observers_;
};

// Posts the event to the manager of the process and frees it when that fails.
DORVO_JOB_API bool postEvent(std::unique_ptr<Notify_Event> event);

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::JobNotifyManagerImpl, ATL::CComAutoCriticalSection>;
