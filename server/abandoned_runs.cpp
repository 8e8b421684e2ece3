#include "abandoned_runs.h"

#include <algorithm>
#include <exception>

#include "common/service_log.h"
#include "common/stop_wait.h"

namespace dorvo {

using std::chrono::seconds;

namespace {

// One that is busy, or a catalog that is down, holds up none of the others: there is another time.
template <class Call>
void attempt(const Call& call) {
    try {
        call();
    } catch (const std::exception& error) {
        logEvent(std::string("abandoned backups: ") + error.what());
    }
}

}  // namespace

AbandonedRuns::AbandonedRuns(Instances& instances, DiskRoom& room, seconds lifetime, GiveUp giveUp)
    : instances_(instances),
      room_(room),
      lifetime_(lifetime),
      giveUp_(std::move(giveUp)),
      thread_([this](const std::stop_token& stop) { work(stop); }) {}

void AbandonedRuns::work(const std::stop_token& stop) {
    const seconds step = std::clamp(lifetime_ / 16, seconds(1), seconds(3600));
    // What has become due while the service was busy with its end.
    look(seconds(0));
    while (!stopsWithin(stop, step)) {
        look(step);
    }
}

void AbandonedRuns::look(seconds passed) {
    std::vector<int64_t> list;
    attempt([&] {
        list =
            room_.givingWay([&] { return instances_.listIdle(passed.count(), lifetime_.count()); });
    });
    for (const int64_t instance : list) {
        attempt([&] { giveUp_(instance, lifetime_); });
    }
}

}  // namespace dorvo
