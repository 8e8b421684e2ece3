// Where a restore job gets its files from: the interface of all storage back ends of restore jobs.
//
// A storage serves one run. Calls come in this order, all on the job's worker thread: start() once,
// then restoreDirectory() and restoreFile() for the items of the source list, then end() or nothing
// (a paused run, which a later storage continues). A resumed run makes a new storage and calls
// start() again; end() may come without start().
//
// False leaves the reason in the thread's last error: a Win32 or socket code, a marked HTTP status
// (base/error_codes.h), 1223 when the job was asked to stop. Failures are logged here, with the
// operation's subject; the caller decides what becomes of the run. Operations block until they are
// done, fail, or the job's stop signal is set; end() does not heed the signal.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "json_spirit/json_spirit.h"

namespace dorvo {

class RestoreStorage {
public:
    virtual ~RestoreStorage() = default;

    // Opens the restore at the back end. Doing it again for a run under way does no harm.
    virtual bool start() = 0;

    // Makes the directory `target`, its parents included, of what was backed up as `original`, and
    // gives it its attributes and times. One that is there already stays.
    virtual bool restoreDirectory(const wchar_t* original, const wchar_t* target) = 0;

    // Brings back one file with its attributes and times; `number` is the item's number in the
    // source list. The file appears as `target` only when it is whole. What is there is replaced
    // when `replace` is true; otherwise it stays, and the operation fails with ERROR_FILE_EXISTS.
    // What an earlier run received of the same item is not fetched again.
    virtual bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                             bool replace) = 0;

    // Hands over the failed items and the run's history document, however the run has ended.
    virtual bool end(const json_spirit::Object& history) = 0;
};

}  // namespace dorvo
