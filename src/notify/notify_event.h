// Events of jobs, and their texts for the host's observers: what happened, as JSON, and the user
// whom it concerns.
#pragma once

#include <json_spirit/json_spirit.h>
#include <string>

#include "base/api.h"

namespace dorvo {

// Made with `new` by the sender and owned by the notification manager once it was posted.
class DORVO_JOB_API Notify_Event {
public:
    // A null text or user counts as empty; an empty user concerns everybody.
    Notify_Event(const char* event, const char* user);
    Notify_Event(const std::string& event, const char* user);
    // The value written compactly.
    Notify_Event(const json_spirit::Value& value, const char* user);
    virtual ~Notify_Event() = default;

    const std::string& event() const { return event_; }
    const std::string& get_user() const { return user_; }
    const std::string& set_user(const std::string& user) { return user_ = user; }

private:
    std::string event_;
    std::string user_;
};

// A job's state has changed: {"id", "name", "state"}.
class DORVO_JOB_API Event_State : public Notify_Event {
public:
    // `state` is a JobState; one without a text shows as "none". Null texts count as empty.
    Event_State(const char* user, const char* id, const wchar_t* name, unsigned state);
};

// A job has met an error: {"error-code", "id", "name", "reason", "state"}.
class DORVO_JOB_API Event_Job_Error : public Notify_Event {
public:
    // `code` is a Win32 or socket error, or an HTTP status without its mark. Null texts count as
    // empty.
    Event_Job_Error(const char* user, const char* id, const wchar_t* name, unsigned state, int code,
                    const char* reason);
};

// Nothing more will come: an empty text for every observer.
class DORVO_JOB_API Event_End : public Notify_Event {
public:
    Event_End() : Notify_Event("", "") {}
};

}  // namespace dorvo
