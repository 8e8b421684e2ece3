#include "abandoned_runs.h"

#include <algorithm>
#include <exception>

#include "event_log.h"

namespace dorvo {

using std::chrono::seconds;

AbandonedRuns::AbandonedRuns(Catalog& catalog, seconds lifetime, GiveUp giveUp)
    : catalog_(catalog),
      lifetime_(lifetime),
      giveUp_(std::move(giveUp)),
      thread_([this] { work(); }) {}

AbandonedRuns::~AbandonedRuns() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void AbandonedRuns::work() {
    const seconds step = std::clamp(lifetime_ / 16, seconds(1), seconds(3600));
    // What has become due while the service was busy with its end.
    look(seconds(0));
    std::unique_lock lock(mutex_);
    while (!changed_.wait_for(lock, step, [this] { return stop_; })) {
        lock.unlock();
        look(step);
        lock.lock();
    }
}

void AbandonedRuns::look(seconds passed) {
    try {
        for (const std::string& name : catalog_.listIdle(passed.count(), lifetime_.count())) {
            giveUp_(name, lifetime_);
        }
    } catch (const std::exception& error) {
        // Busy, or down: there is another time.
        logEvent(std::string("abandoned backups: ") + error.what());
    }
}

}  // namespace dorvo
