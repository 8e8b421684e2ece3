// Says in a job's record, for as long as it lives, that the service works on an answer that may
// take it long.
//
// For whoever shows the job; nothing of the run depends on it. The record is borrowed and may be
// null.
#pragma once

#include "http_util/http_command.h"
#include "job/activity/jobactivity.h"

namespace dorvo {

class AnswerWait {
public:
    AnswerWait(const HTTP_Command& command, JobActivity* record)
        : record_(command.answer_timeout() == HTTP_Command::LONG_ANSWER_TIMEOUT ? record
                                                                                : nullptr) {
        if (record_ != nullptr) {
            before_ = record_->currentFileState;
            record_->currentFileState = static_cast<uint32_t>(CurrentFileState::awaited);
        }
    }
    ~AnswerWait() {
        if (record_ != nullptr) {
            record_->currentFileState = before_;
        }
    }
    AnswerWait(const AnswerWait&) = delete;
    AnswerWait& operator=(const AnswerWait&) = delete;

private:
    JobActivity* record_;
    uint32_t before_ = 0;
};

}  // namespace dorvo
