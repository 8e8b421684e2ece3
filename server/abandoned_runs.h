// Ends the backups that nobody goes on with: whose machine is no more, or whose client has given
// them up after damage without saying so. Their bytes are freed.
//
// What counts is the time that the service has been there and no request has come about the backup,
// by a clock that nobody sets: neither a wrong date nor a server that was off for a month ends
// anything. A thread of its own counts, a part of the lifetime at a time.
#pragma once

#include <chrono>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>

#include "catalog/instances.h"
#include "packages/disk_room.h"

namespace dorvo {

class AbandonedRuns {
public:
    // Ends that backup, which has been idle for so long, unless somebody has come back
    // to it. One of which it throws is another time's.
    using GiveUp = std::function<void(int64_t instance, std::chrono::seconds lifetime)>;

    // Borrows the catalog and the room.
    AbandonedRuns(Instances& instances, DiskRoom& room, std::chrono::seconds lifetime,
                  GiveUp giveUp);
    // Stops and joins; a backup that is being ended is ended.
    ~AbandonedRuns() = default;
    AbandonedRuns(const AbandonedRuns&) = delete;
    AbandonedRuns& operator=(const AbandonedRuns&) = delete;

private:
    void work(const std::stop_token& stop);
    void look(std::chrono::seconds passed);

    Instances& instances_;
    DiskRoom& room_;
    const std::chrono::seconds lifetime_;
    const GiveUp giveUp_;
    std::jthread thread_;  // the last: it uses all of the others
};

}  // namespace dorvo
