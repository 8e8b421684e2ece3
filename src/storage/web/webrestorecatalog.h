// What a backup on the web storage service holds.
//
// Asks the server that the options name, in the session of the user.
#pragma once

#include <windows.h>

#include <string>

#include "base/interrupter.h"
#include "record/jobactivity.h"
#include "storage/restorecatalog.h"
#include "storage/storedinstance.h"
#include "storage/web/web_session.h"

namespace dorvo {

class WebRestoreCatalog : public RestoreCatalog {
public:
    // The record and the stop signal are borrowed, and may be null: nobody is told that an answer
    // is awaited, nothing breaks a listing off.
    WebRestoreCatalog(const std::string& user, StoredRun run, JobActivity* activity, HANDLE stop);
    WebRestoreCatalog(const WebRestoreCatalog&) = delete;
    WebRestoreCatalog& operator=(const WebRestoreCatalog&) = delete;

    // Without a cookie the last error is that of a refused session, without a server it is 87.
    bool list(const std::wstring& path, const std::string& after, Page& page) override;

private:
    const StoredRun run_;
    JobActivity* activity_;  // borrowed
    interrupter stop_;
    Web_Session session_;
};

}  // namespace dorvo
