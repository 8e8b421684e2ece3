#include "storage/web/webrun.h"

#include "storage/web/answer_wait.h"
#include "storage/web/web_exchange.h"

namespace dorvo {

WebRun::WebRun(WebPlace place, const StorageTask& task)
    : interrupter(task.stop),
      place_(std::move(place)),
      activity_(task.activity),
      progress_(task.activity),
      session_(place_.user, place_.cookie),
      changed_(task.changed),
      patienceMs_(task.finishPatienceMs) {
    session_.set_interrupter(this);
}

bool WebRun::interrupted() const {
    return !(finishing_ && GetTickCount64() - finishingSince_ < patienceMs_) &&
           interrupter::interrupted();
}

void WebRun::beginFinish() {
    finishing_ = true;
    finishingSince_ = GetTickCount64();
}

bool WebRun::aimAtServer() {
    return session_.invoker().invoker() != nullptr ||
           aimAt(session_.invoker(), place_.host, place_.port);
}

int WebRun::run(HTTP_Command& command) {
    const AnswerWait waits(command, activity_, &changed_);
    return session_.run(command, progress_.wire());
}

}  // namespace dorvo
