// Brings events from any thread to the observers, over the dispatcher's completion port.
//
// Events are delivered on the dispatcher's thread in the order in which they were posted. An
// observer gets an event when its user or the event's is empty, or when both are the same.
#pragma once

#include <json_spirit/json_spirit.h>

#include <memory>
#include <set>
#include <string>

#include "base/api.h"
#include "base/singleton.h"
#include "notify/notify_event.h"
#include "scheduler/io_completion_port.h"

namespace dorvo {

// Receives the events of one user's jobs, or of all.
//
// Supplied by the host. deliver() is called on the dispatcher's thread, never twice at once, while
// the notification manager's lock is held: it puts the text aside and returns; it neither registers
// nor unregisters observers and waits for nothing.
class DORVO_JOB_API JobNotifyObserver {
public:
    // An empty or null user receives every event.
    explicit JobNotifyObserver(const char* user) : user_(user == nullptr ? "" : user) {}
    virtual ~JobNotifyObserver() = default;
    // Takes the event's JSON text. False when it could not be taken; nobody tries again.
    virtual bool deliver(const std::string& text) = 0;
    JobNotifyObserver(const JobNotifyObserver&) = delete;
    JobNotifyObserver& operator=(const JobNotifyObserver&) = delete;

    const std::string& user() const { return user_; }

    // Delivers the value written compactly.
    bool post_event(const json_spirit::Value& value);
    // Delivers the event's text; the event stays the caller's. False for null.
    bool post_evenet(const Notify_Event* event);

private:
    std::string user_;
};

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
