#include "notify/event_job_error.h"

#include "base/job_state.h"
#include "base/text.h"

namespace dorvo {
namespace {

json_spirit::Value errorValue(const char* id, const wchar_t* name, unsigned state, int code,
                              const char* reason) {
    json_spirit::Object object;
    object["id"] = id == nullptr ? "" : id;
    object["name"] = toUtf8(name == nullptr ? L"" : name);
    object["state"] = jobStateToString(static_cast<int>(state));
    object["error-code"] = code;
    object["reason"] = reason == nullptr ? "" : reason;
    return object;
}

}  // namespace

Event_Job_Error::Event_Job_Error(const char* user, const char* id, const wchar_t* name,
                                 unsigned state, int code, const char* reason)
    : Notify_Event(errorValue(id, name, state, code, reason), user) {}

}  // namespace dorvo
