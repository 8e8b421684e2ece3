// Threads for what takes long: the ends of backups, which wait for the disk, and passwords, which
// cost a hash on purpose.
//
// A request that leads to it holds no worker meanwhile, so however many wait, all others are
// served. Those that wait take turns, see FairQueue. Any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fair_queue.h"
#include "httpd/http_service.h"

namespace dorvo {

class LateWork {
public:
    struct Options {
        size_t threads = 1;
        size_t waiting = SIZE_MAX;  // beyond those that are worked on
        int nice = 0;               // how much less of the processors they get than others
        WebReply full{};  // where that is bounded: the answer to those for whom there is no room
    };
    using Work = std::function<WebReply()>;

    // Throws std::system_error when the system refuses a thread.
    explicit LateWork(Options options);
    // stop()
    ~LateWork();
    LateWork(const LateWork&) = delete;
    LateWork& operator=(const LateWork&) = delete;

    // Answers with what the work gives, in its turn among all of that address and of that user. The
    // work, and what it holds, is gone by then: the client's next request must not meet it. Where
    // it throws, the callback goes uncalled; an empty one wants no answer. None: it has been
    // answered already.
    std::optional<LongPoll> run(const std::string& address, const std::string& user, Work work,
                                HttpService::Respond respond);

    // Finishes what has begun, drops what has not, and joins. The HTTP server has been stopped.
    // Idempotent.
    void stop();

private:
    struct Task {
        Work work;
        HttpService::Respond respond;  // empty: nobody waits for the answer any more
    };

    void serve();
    // What the work gives, none when it throws; then it is gone.
    static std::optional<WebReply> done(Task& task);
    // With the lock held, so that no answer comes after a withdrawal.
    static void answer(Task& task, WebReply reply);

    const Options options_;
    std::mutex mutex_;  // guards what follows, and the tasks' respond
    std::condition_variable changed_;
    FairQueue<std::shared_ptr<Task>> waiting_;
    bool stop_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace dorvo
