// Where a backup job puts what it reads: the interface of all storage back ends of backup jobs.
//
// A storage serves one run. Calls come in this order, all on the job's worker thread: start() once,
// then backup() for the items of the source list, then end() or cancel() or neither (a paused run,
// which a later storage continues). A resumed run makes a new storage and calls start() again;
// cancel() may come without start().
//
// Every operation answers true when the back end holds what it was given, so that it survives the
// end of this process and of the service's. False leaves the reason in the thread's last error: a
// Win32 or socket code, a marked HTTP status (base/error_codes.h), 1223 when the job
// was asked to stop. Failures are logged here, with the operation's subject; the caller decides
// what becomes of the run. Operations block until they are done, fail, or the job's stop signal is
// set; end(), cancel() and start() of a run that is being ended do not heed the signal.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace dorvo {

class BackupStorage {
public:
    virtual ~BackupStorage() = default;

    // Opens the run at the back end. Doing it again for a run under way changes nothing there.
    virtual bool start() = 0;

    // Hands over the failed items, where they go apart from the run's end. end() sees to it.
    virtual bool submit_errors() { return true; }

    // Hands over the failed items and completes the run.
    virtual bool end() = 0;

    // Drops the run.
    virtual bool cancel() = 0;

    // Stores one file or directory under `path` with its attributes. The bytes are read from
    // `readFrom` (the path on the volume's snapshot), from `path` itself when that is null; always
    // null for directories. `number` is the item's number in the source list. What an earlier run
    // got across of the same, unchanged item is not sent again.
    virtual bool backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data, uint32_t number,
                        const wchar_t* readFrom) = 0;
};

}  // namespace dorvo
