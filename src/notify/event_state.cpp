#include "notify/event_state.h"

#include "base/job_state.h"
#include "base/text.h"

namespace dorvo {
namespace {

json_spirit::Value stateValue(const char* id, const wchar_t* name, unsigned state) {
    json_spirit::Object object;
    object["id"] = id == nullptr ? "" : id;
    object["name"] = toUtf8(name == nullptr ? L"" : name);
    object["state"] = jobStateToString(static_cast<int>(state));
    return object;
}

}  // namespace

Event_State::Event_State(const char* user, const char* id, const wchar_t* name, unsigned state)
    : Notify_Event(stateValue(id, name, state), user) {}

}  // namespace dorvo
