#include "late_work.h"

#include <sys/resource.h>
#include <unistd.h>

#include <utility>

#include "common/service_log.h"

namespace dorvo {

LateWork::LateWork(Options options) : options_(std::move(options)), waiting_(options_.waiting) {
    try {
        for (size_t i = 0; i < options_.threads; ++i) {
            threads_.emplace_back([this] { serve(); });
        }
    } catch (const std::exception&) {
        stop();
        throw;
    }
}

LateWork::~LateWork() {
    stop();
}

std::optional<LongPoll> LateWork::run(const std::string& address, const std::string& user,
                                      Work work, HttpService::Respond respond) {
    const auto task = std::make_shared<Task>(Task{std::move(work), std::move(respond)});
    std::optional<std::shared_ptr<Task>> refused;
    {
        const std::lock_guard lock(mutex_);
        refused = waiting_.push(address, user, task);
        if (refused) {
            answer(**refused, options_.full);
        }
    }
    changed_.notify_one();
    if (refused == task) {
        return std::nullopt;
    }
    LongPoll poll;
    poll.work = true;
    poll.withdraw = [this, task] {
        const std::lock_guard lock(mutex_);
        task->respond = nullptr;
    };
    return poll;
}

void LateWork::stop() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
        waiting_.clear();
    }
    changed_.notify_all();
    for (std::thread& thread : std::exchange(threads_, {})) {
        thread.join();
    }
}

void LateWork::serve() {
    if (options_.nice != 0) {
        // Of this thread alone. Without it the work is as important as all other.
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), options_.nice);
    }
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return stop_ || !waiting_.empty(); });
        if (stop_) {
            return;
        }
        const std::shared_ptr<Task> task = *waiting_.pop();
        lock.unlock();
        std::optional<WebReply> reply = done(*task);
        lock.lock();
        try {
            if (reply) {
                answer(*task, *std::move(reply));
            }
        } catch (const std::exception& error) {
            logEvent(std::string("lost an answer: ") + error.what());
        }
        // One that is not answered ends its connection so.
        task->respond = nullptr;
    }
}

std::optional<WebReply> LateWork::done(Task& task) {
    std::optional<WebReply> reply;
    try {
        reply = task.work();
    } catch (const std::exception& error) {
        // Memory is short, most likely, and whoever asked for the work has judged all else.
        logEvent(std::string("lost an answer: ") + error.what());
    }
    task.work = nullptr;
    return reply;
}

void LateWork::answer(Task& task, WebReply reply) {
    if (task.respond) {
        std::exchange(task.respond, nullptr)(std::move(reply));
    }
}

}  // namespace dorvo
