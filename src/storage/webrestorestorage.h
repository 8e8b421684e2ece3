// Brings a backup back from the web storage service, over HTTP with the user's session.
//
// Each file is asked for, its package is received in blocks of 128 KiB into the job's temporary
// folder, and then decoded into its place. The activity record says at any time how far the current
// item's package has come, so that the next run goes on there: what is on record of an offset
// belongs to the item whose number is on record, and to a package of the size on record. The
// record is written on the job's worker thread only; the stop signal comes from others.
//
// A package stays where it was received when its item fails or the run stops; recordError() deletes
// that of the current item.
#pragma once

#include <windows.h>

#include <array>
#include <string>

#include "http_util/web_server_invoker.h"
#include "job/activity/jobactivity.h"
#include "job/source/restoretransformation.h"
#include "storage/faileditems.h"
#include "storage/patient_interrupter.h"
#include "storage/restore_bodies.h"
#include "storage/restorestorage.h"

namespace dorvo {

class WebRestoreStorage : public RestoreStorage, public patient_interrupter {
public:
    struct Run {
        std::string jobId;
        std::string jobName;
        std::string machine;          // whose backup is restored
        std::string jobDefinitionId;  // of the backup job
        std::string jobInstanceId;    // of the backup job's run
        std::string user;
        std::string cookie;  // empty: start() fails like a refused session
        std::string host;
        uint16_t port = 0;
        std::array<uint8_t, 16> key{};
        std::array<uint8_t, 16> iv{};
        JobActivity* activity = nullptr;  // borrowed; null: everything fails
        FailedItems* failed = nullptr;    // borrowed
        HANDLE stop = nullptr;            // manual-reset event, borrowed
        // How long ending the run may go on once a stop is asked for, milliseconds.
        DWORD finishPatienceMs = defaultPatienceMs;
    };

    explicit WebRestoreStorage(Run run);

    bool start() override;
    bool restoreDirectory(const wchar_t* original, const wchar_t* target) override;
    bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                     bool replace) override;
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override;
    bool end(const json_spirit::Object& history) override;

private:
    struct Item;

    Run run_;
    JobActivity* activity_;   // borrowed
    std::string backupId_;    // the run that is restored; empty when its id is none
    std::string restoreId_;   // the service's name for this restore; empty before start()
    std::wstring temporary_;  // the folder of the packages
    Web_Server_Invoker invoker_;
    RestoreTransformation plain_;
    RestoreTransformation compressed_;
};

}  // namespace dorvo
