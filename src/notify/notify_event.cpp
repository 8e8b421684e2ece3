#include "notify/notify_event.h"

namespace dorvo {
namespace {

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace

Notify_Event::Notify_Event(const char* event, const char* user)
    : event_(orEmpty(event)), user_(orEmpty(user)) {}

Notify_Event::Notify_Event(const std::string& event, const char* user)
    : event_(event), user_(orEmpty(user)) {}

Notify_Event::Notify_Event(const json_spirit::Value& value, const char* user)
    : Notify_Event(json_spirit::write(value), user) {}

}  // namespace dorvo
