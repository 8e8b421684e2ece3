// The items that failed in a run, kept in the run's ".errors" document and its journal.
//
// Opened with what an interrupted run has left there. What add() has answered true for is flushed
// to the disk, so the run's position may move past it. One thread.
#pragma once

#include <windows.h>

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "record/jobactivity.h"
#include "record/jobhistoryerror.h"
#include "storage/items.h"

namespace dorvo {

class FailedItems {
public:
    // `document` is a UTF-8 path; the count goes into the record, which is borrowed.
    FailedItems(const std::string& document, JobActivity& activity);

    // Why what is there could not be read; 0 when it could. A run that goes on with it would forget
    // what an earlier part of it has left out: it has to fail.
    DWORD readError() const { return document_.readError(); }

    // False with the last error when it cannot be kept, and then nothing of it is. An item that a
    // resumed run meets again with the same error stands there once.
    bool add(const wchar_t* path, DWORD code, const std::string& reason);
    // Forgets all of them, on disk too. False with the last error when that failed.
    bool clear();
    // Makes the document whole, also when it is empty. What could not be read stays as it is.
    bool save() { return document_.readError() != ERROR_SUCCESS || document_.save(); }

    std::vector<FailedItem> list() const;

    // Hands over all of them, as many at a time as one request takes; stops where `submit` says no.
    bool eachBatch(const std::function<bool(std::span<const FailedItem>)>& submit) const;

private:
    JobHistoryError document_;
    JobActivity& activity_;
};

}  // namespace dorvo
