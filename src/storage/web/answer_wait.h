// Says in a job's record, for as long as it lives, that the service works on an answer that may
// take it long.
//
// For whoever shows the job, who is told by `changed`, borrowed; nothing of the run depends on it.
// The record is borrowed; it and `changed` may be null.
#pragma once

#include <functional>

#include "http_util/http_command.h"
#include "record/itemprogress.h"

namespace dorvo {

class AnswerWait {
public:
    AnswerWait(const HTTP_Command& command, JobActivity* record,
               const std::function<void()>* changed = nullptr)
        : record_(command.answer_timeout() == HTTP_Command::LONG_ANSWER_TIMEOUT ? record : nullptr),
          changed_(changed) {
        if (record_ != nullptr) {
            before_ = say(CurrentFileState::awaited);
        }
    }
    ~AnswerWait() {
        if (record_ != nullptr) {
            say(before_);
        }
    }
    AnswerWait(const AnswerWait&) = delete;
    AnswerWait& operator=(const AnswerWait&) = delete;

private:
    CurrentFileState say(CurrentFileState state) {
        const CurrentFileState before = ItemProgress(record_).state(state);
        if (changed_ != nullptr && *changed_) {
            (*changed_)();
        }
        return before;
    }

    JobActivity* record_;
    const std::function<void()>* changed_;
    CurrentFileState before_ = CurrentFileState::none;
};

}  // namespace dorvo
