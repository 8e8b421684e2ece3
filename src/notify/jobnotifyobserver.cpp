#include "notify/jobnotifyobserver.h"

namespace dorvo {

bool JobNotifyObserver::post_event(const json_spirit::Value& value) {
    return deliver(json_spirit::write(value));
}

bool JobNotifyObserver::post_evenet(const Notify_Event* event) {
    return event != nullptr && deliver(event->event());
}

}  // namespace dorvo
