#include "run/runevents.h"

#include <array>

#include "base/http_error.h"
#include "base/job_state.h"
#include "httpmsg/http_names.h"
#include "json_spirit/json_spirit.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

// Of an HTTP status an event says the bare number; its reason tells it from a system's error.
uint32_t errorCode(uint32_t code, const std::string& reason) {
    constexpr uint32_t lastStatus = 599;
    const bool status = code <= lastStatus && reason == http_status_string(static_cast<int>(code));
    return status ? withHttpMark(code) : code;
}

}  // namespace

RunEvents::RunEvents(Engine* engine) : event_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    if (engine != nullptr) {
        subscription_ = engine->subscribe([this](const std::string& text) { hear(text); });
    }
}

void RunEvents::hear(const std::string& text) {
    {
        const std::lock_guard guard(lock_);
        if (text.empty()) {
            ended_ = true;
        } else if (const auto event = read(text)) {
            if (event->error != 0) {
                errors_[event->id] = event->error;
            }
            if (event->state == jobStateToString(JobState::deleted)) {
                removed_.insert(event->id);
            }
        }
    }
    SetEvent(event_.get());
}

bool RunEvents::wait(HANDLE interrupt, DWORD timeoutMs) const {
    const std::array<HANDLE, 2> wakers = {interrupt, event_.get()};
    return WaitForMultipleObjects(static_cast<DWORD>(wakers.size()), wakers.data(), FALSE,
                                  timeoutMs) != WAIT_OBJECT_0;
}

bool RunEvents::ended() {
    const std::lock_guard guard(lock_);
    return ended_;
}

bool RunEvents::removed(const std::string& jobId) {
    const std::lock_guard guard(lock_);
    return removed_.contains(jobId);
}

std::string RunEvents::takeReason(const JobDefinition& job) {
    const std::lock_guard guard(lock_);
    const auto error = errors_.extract(job.id());
    return error.empty() ? std::string() : runFailure(error.mapped(), job.user());
}

std::optional<JobEvent> RunEvents::read(const std::string& text) {
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(text, value);
        const json_spirit::Object& event = value.get_obj();
        JobEvent read{.id = json_spirit::object_get_str_or_throw(event, "id"),
                      .state = json_spirit::object_get_str_or_throw(event, "state")};
        if (const auto code = event.find("error-code"); code != event.end()) {
            read.error = errorCode(static_cast<uint32_t>(code->second.get_int()),
                                   json_spirit::object_get_str_or_throw(event, "reason"));
        }
        return read;
    } catch (const json_spirit::Error_position&) {
        return std::nullopt;
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

}  // namespace dorvo::agent
