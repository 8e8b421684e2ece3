// A job's state has changed: {"id", "name", "state"}.
#pragma once

#include "notify/notify_event.h"

namespace dorvo {

class DORVO_JOB_API Event_State : public Notify_Event {
public:
    // `state` is a JobState; one without a text shows as "none". Null texts count as empty.
    Event_State(const char* user, const char* id, const wchar_t* name, unsigned state);
};

}  // namespace dorvo
