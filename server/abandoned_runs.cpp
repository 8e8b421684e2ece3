#include "abandoned_runs.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>

#include "event_log.h"

namespace dorvo {

using std::chrono::seconds;

AbandonedRuns::AbandonedRuns(Catalog& catalog, seconds lifetime, GiveUp giveUp)
    : catalog_(catalog),
      lifetime_(lifetime),
      giveUp_(std::move(giveUp)),
      thread_([this](const std::stop_token& stop) { work(stop); }) {}

void AbandonedRuns::work(const std::stop_token& stop) {
    const seconds step = std::clamp(lifetime_ / 16, seconds(1), seconds(3600));
    // What has become due while the service was busy with its end.
    look(seconds(0));
    std::mutex mutex;  // the wait for the stop wants one; it guards nothing
    std::condition_variable_any stopped;
    std::unique_lock lock(mutex);
    while (!stop.stop_requested()) {
        stopped.wait_for(lock, stop, step, [] { return false; });
        if (!stop.stop_requested()) {
            look(step);
        }
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
