// A job has met an error: {"error-code", "id", "name", "reason", "state"}.
#pragma once

#include "notify/notify_event.h"

namespace dorvo {

class DORVO_JOB_API Event_Job_Error : public Notify_Event {
public:
    // `code` is a Win32 or socket error, or an HTTP status without its mark. Null texts count as
    // empty.
    Event_Job_Error(const char* user, const char* id, const wchar_t* name, unsigned state, int code,
                    const char* reason);
};

}  // namespace dorvo
