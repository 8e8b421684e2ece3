#include "job/jobcmdqueue.h"

#include <atomic>
#include <mutex>
#include <system_error>
#include <utility>

#include "base/log.h"
#include "base/thread.h"

namespace dorvo {
namespace {

std::atomic<JobCommands*> carrier{nullptr};

constexpr LONG longestCount = 100'000;

}  // namespace

JobCmdQueue* JobCmdQueue::instance() {
    static std::once_flag once;
    static JobCmdQueue* queue = nullptr;
    std::call_once(once, [] { queue = new JobCmdQueue; });
    return queue;
}

void JobCmdQueue::carriedOutBy(JobCommands* jobs) {
    carrier = jobs;
}

JobCmdQueue::JobCmdQueue()
    : semaphore_(CreateSemaphoreA(nullptr, 0, longestCount, nullptr)),
      exitEvent_(CreateEventA(nullptr, FALSE, FALSE, nullptr)) {
    if (!semaphore_ || !exitEvent_) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    if (!startThread(dispatchThread, this, thread_)) {
        log(LogLevel::error,
            "JobCmdQueue: Failed to create dispatch thread, error-code = %d, %m.\n",
            GetLastError());
    }
}

void JobCmdQueue::add(std::string id, std::string command) {
    put(std::move(id), {std::move(command)});
}

void JobCmdQueue::addResumeAfterError(std::string id) {
    put(std::move(id), {"resume", true});
}

void JobCmdQueue::put(std::string id, Command command) {
    std::lock_guard guard(lock_);
    log(LogLevel::debug, "Add command %s of job %s to JobCmdQueue.\n", id, command.text);
    pending_[std::move(id)] = std::move(command);
    ReleaseSemaphore(semaphore_.get(), 1, nullptr);
}

void JobCmdQueue::stop() {
    std::lock_guard guard(stopLock_);
    if (thread_ == nullptr) {
        return;
    }
    SetEvent(exitEvent_.get());
    joinThread(thread_);
    std::lock_guard pendingGuard(lock_);
    pending_.clear();
}

DWORD WINAPI JobCmdQueue::dispatchThread(void* self) {
    return static_cast<JobCmdQueue*>(self)->dispatch();
}

DWORD JobCmdQueue::dispatch() {
    const HANDLE either[] = {exitEvent_.get(), semaphore_.get()};
    for (;;) {
        switch (WaitForMultipleObjects(2, either, FALSE, INFINITE)) {
            case WAIT_OBJECT_0:
                log(LogLevel::information, "JobCmdQueueImpl: dispatch thread exit.\n");
                return 0;
            case WAIT_OBJECT_0 + 1: executeFirst(); break;
            default: {
                const DWORD error = GetLastError();
                log(LogLevel::error,
                    "JobCmdQueueImpl: Failed to wait the semaphore and exit thread event, "
                    "error-code = %d, %m.\n",
                    error);
                return error;
            }
        }
    }
}

void JobCmdQueue::executeFirst() {
    std::pair<std::string, Command> first;
    {
        std::lock_guard guard(lock_);
        if (pending_.empty()) {
            return;  // a unit left over from a command that was replaced
        }
        first = *pending_.begin();
        pending_.erase(pending_.begin());
    }
    execute(first.first, first.second);
}

void JobCmdQueue::execute(const std::string& id, const Command& command) {
    const std::string& text = command.text;
    log(LogLevel::debug, "JobCmdQueue: execute command \"%s\" for job %s.\n", text, id);
    JobCommands* const jobs = carrier;
    if (jobs == nullptr) {
        log(LogLevel::warning, "JobCmdQueue: nobody carries out command \"%s\" for job %s.\n", text,
            id);
        return;
    }
    if (text == "start") {
        jobs->startJob(id.c_str());
    } else if (text == "stop") {
        jobs->stopJob(id.c_str());
    } else if (text == "pause") {
        jobs->pauseJob(id.c_str());
    } else if (text == "resume" && command.afterError) {
        jobs->resumeJobAfterError(id.c_str());
    } else if (text == "resume") {
        jobs->resumeJob(id.c_str());
    } else if (text == "do_schedule") {
        jobs->command("do_schedule", id.c_str());
    }
}

}  // namespace dorvo
