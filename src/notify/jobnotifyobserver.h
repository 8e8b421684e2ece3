// Receives the events of one user's jobs, or of all.
//
// Supplied by the host. deliver() is called on the dispatcher's thread, never twice at once, while
// the notification manager's lock is held: it puts the text aside and returns; it neither registers
// nor unregisters observers and waits for nothing.
#pragma once

#include <json_spirit/json_spirit.h>

#include <string>

#include "base/api.h"
#include "notify/notify_event.h"

namespace dorvo {

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

}  // namespace dorvo
