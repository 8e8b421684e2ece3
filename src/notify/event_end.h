// Nothing more will come: an empty text for every observer.
#pragma once

#include "notify/notify_event.h"

namespace dorvo {

class DORVO_JOB_API Event_End : public Notify_Event {
public:
    Event_End() : Notify_Event("", "") {}
};

}  // namespace dorvo
