// What the two storages on the web service have in common: the server and the session of a run, its
// record, and the stop signal.
//
// The signal is heard at once while items travel, only after a patience while the run is being
// ended. A stop must not keep a run from being ended in order, and a server that stalls there must
// not hold up the host for ever. The record is written on the thread that uses the storage; asking
// for a stop is for any thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>

#include "base/interrupter.h"
#include "http_util/http_command.h"
#include "record/itemprogress.h"
#include "storage/storagetask.h"
#include "storage/web/web_session.h"

namespace dorvo {

// Where a storage on the web finds its run: a server, and whose session there. A value.
struct WebPlace {
    std::string user;
    std::string cookie;  // empty: the one that the store has when it is needed
    std::string host;
    uint16_t port = 0;
};

class WebRun : public interrupter {
public:
    WebRun(const WebRun&) = delete;
    WebRun& operator=(const WebRun&) = delete;

    bool interrupted() const override;

protected:
    WebRun(WebPlace place, const StorageTask& task);

    // 87 where the place has no host or port.
    bool aimAtServer();
    // As Web_Session::run. What is sent counts on record, which also shows that an answer is
    // awaited that may take long.
    int run(HTTP_Command& command);
    // The run is being ended: the patience begins.
    void beginFinish();

    const WebPlace place_;
    JobActivity* const activity_;  // borrowed
    ItemProgress progress_;        // the way to write there
    Web_Session session_;

private:
    const std::function<void()> changed_;
    const DWORD patienceMs_;
    bool finishing_ = false;
    ULONGLONG finishingSince_ = 0;  // tick count, milliseconds
};

}  // namespace dorvo
