#include "runevents.h"

#include <utility>

#include "base/key_error.h"
#include "base/text.h"
#include "failuretext.h"
#include "notify/jobnotifymanager.h"
#include "singletons.h"

namespace dorvo::agent {

RunEvents::RunEvents(std::string jobId)
    : JobNotifyObserver(nullptr),
      jobId_(std::move(jobId)),
      event_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    singleton<JobNotifyManagerImpl>().registerObserver(this);
}

RunEvents::~RunEvents() {
    singleton<JobNotifyManagerImpl>().unregisterObserver(this);
}

bool RunEvents::deliver(const std::string& text) {
    std::string reason = reasonOf(text, jobId_);
    if (!reason.empty()) {
        std::lock_guard guard(lock_);
        reason_ = std::move(reason);
    }
    return SetEvent(event_.get()) != 0;
}

std::string RunEvents::takeReason() {
    std::lock_guard guard(lock_);
    return std::exchange(reason_, {});
}

std::string RunEvents::reasonOf(const std::string& text, const std::string& jobId) {
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(text, value);
        const json_spirit::Object& event = value.get_obj();
        const auto code = event.find("error-code");
        if (code == event.end() ||
            !equalsIgnoreCase(json_spirit::object_get_str_or_throw(event, "id"), jobId)) {
            return {};
        }
        std::string reason = json_spirit::object_get_str_or_throw(event, "reason");
        while (!reason.empty() && (reason.back() == '.' || reason.back() == ' ')) {
            reason.pop_back();
        }
        const int number = code->second.get_int();
        if (reason.empty()) {
            return failureText(static_cast<uint32_t>(number));
        }
        // The words for a key say what to do; its number says nothing more.
        return isKeyError(static_cast<uint32_t>(number))
                   ? reason
                   : reason + ", error " + std::to_string(number);
    } catch (const json_spirit::Error_position&) {
        return {};
    } catch (const std::runtime_error&) {
        return {};
    }
}

}  // namespace dorvo::agent
