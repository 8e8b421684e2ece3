// The items that failed in a run, kept in the run's ".errors" document.
//
// Opened with what an interrupted run has left there. What add() has answered true for is on disk,
// so the run's position may move past it. One thread.
#pragma once

#include <windows.h>

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "job/activity/jobactivity.h"
#include "job/activity/jobhistoryerror.h"
#include "storage/request_bodies.h"

namespace dorvo {

class FailedItems {
public:
    // `document` is a UTF-8 path; the count goes into the record, which is borrowed.
    FailedItems(const std::string& document, JobActivity& activity);

    // False with the last error when the document cannot be written. An item that a resumed run
    // meets again with the same error stands there once.
    bool add(const wchar_t* path, DWORD code, const std::string& reason);
    // Forgets all of them, on disk too. False with the last error when that failed.
    bool clear();
    // Writes the document, also when it is empty.
    bool save() { return document_.save(); }

    std::vector<FailedItem> list() const;

    // Hands over all of them, as many at a time as one request takes; stops where `submit` says no.
    bool eachBatch(const std::function<bool(std::span<const FailedItem>)>& submit) const;

private:
    JobHistoryError document_;
    JobActivity& activity_;
    bool written_ = true;  // the file holds all items
};

}  // namespace dorvo
