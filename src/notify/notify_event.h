// A text for the host's observers: what happened, as JSON, and the user whom it concerns.
//
// Made with `new` by the sender and owned by the notification manager once it was posted.
#pragma once

#include <json_spirit/json_spirit.h>

#include <string>

#include "base/api.h"

namespace dorvo {

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

}  // namespace dorvo
