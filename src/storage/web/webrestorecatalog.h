// What a backup on the web storage service holds.
//
// Asks the server that the options name, in the session of the user.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "base/api.h"
#include "base/interrupter.h"
#include "record/jobactivity.h"
#include "storage/restorecatalog.h"

namespace dorvo {

class Web_Session;

class DORVO_JOB_API WebRestoreCatalog : public RestoreCatalog {
public:
    struct Run {
        std::string machine;
        std::string jobInstanceId;  // of the backup
        std::string user;
        HANDLE stop = nullptr;  // manual-reset event, borrowed; null: nothing breaks a listing off
        JobActivity* activity = nullptr;  // borrowed; told that an answer is awaited
    };

    explicit WebRestoreCatalog(Run run);
    ~WebRestoreCatalog() override;
    WebRestoreCatalog(const WebRestoreCatalog&) = delete;
    WebRestoreCatalog& operator=(const WebRestoreCatalog&) = delete;

    // Without a cookie the last error is that of a refused session, without a server it is 87.
    bool list(const std::wstring& path, const std::string& after, Page& page) override;

private:
    Run run_;
    interrupter stop_;
    std::unique_ptr<Web_Session> session_;
};

}  // namespace dorvo
