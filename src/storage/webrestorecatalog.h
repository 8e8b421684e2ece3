// What a backup on the web storage service holds.
//
// Looks up the user's cookie and the server of the options when it is asked.
#pragma once

#include <windows.h>

#include <string>

#include "base/api.h"
#include "base/interrupter.h"
#include "http_util/web_server_invoker.h"
#include "storage/restorecatalog.h"

namespace dorvo {

class DORVO_JOB_API WebRestoreCatalog : public RestoreCatalog {
public:
    struct Run {
        std::string machine;
        std::string jobInstanceId;  // of the backup
        std::string user;
        HANDLE stop = nullptr;  // manual-reset event, borrowed; null: nothing breaks a listing off
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
    Web_Server_Invoker invoker_;
};

}  // namespace dorvo
