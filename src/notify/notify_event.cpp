#include "notify/notify_event.h"

#include "base/job_state.h"
#include "base/text.h"

namespace dorvo {
namespace {

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

json_spirit::Object jobObject(const char* id, const wchar_t* name, unsigned state) {
    return {{"id", orEmpty(id)},
            {"name", toUtf8(name == nullptr ? L"" : name)},
            {"state", jobStateToString(static_cast<int>(state))}};
}

json_spirit::Value errorValue(const char* id, const wchar_t* name, unsigned state, int code,
                              const char* reason) {
    json_spirit::Object object = jobObject(id, name, state);
    object["error-code"] = code;
    object["reason"] = orEmpty(reason);
    return object;
}

}  // namespace

Notify_Event::Notify_Event(const char* event, const char* user)
    : event_(orEmpty(event)), user_(orEmpty(user)) {}

Notify_Event::Notify_Event(const std::string& event, const char* user)
    : event_(event), user_(orEmpty(user)) {}

Notify_Event::Notify_Event(const json_spirit::Value& value, const char* user)
    : Notify_Event(json_spirit::write(value), user) {}

Event_State::Event_State(const char* user, const char* id, const wchar_t* name, unsigned state)
    : Notify_Event(json_spirit::Value(jobObject(id, name, state)), user) {}

Event_Job_Error::Event_Job_Error(const char* user, const char* id, const wchar_t* name,
                                 unsigned state, int code, const char* reason)
    : Notify_Event(errorValue(id, name, state, code, reason), user) {}

}  // namespace dorvo
