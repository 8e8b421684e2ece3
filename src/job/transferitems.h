// Takes the items of a run's source list one at a time, from where the activity record says the
// list stands, and has each of them transferred.
//
// The record's position is that of the item being worked on, so a run that is cut off anywhere
// comes back to it; an item that is through is never repeated, even when a stop has come meanwhile.
// Runs on the job's work thread; job and reader are borrowed.
#pragma once

#include <windows.h>

#include <string>

#include "base/log.h"
#include "job/transferjob.h"
#include "record/itemprogress.h"
#include "record/jobactsrcreader.h"

namespace dorvo {

class TransferItems {
public:
    virtual ~TransferItems() = default;
    TransferItems(const TransferItems&) = delete;
    TransferItems& operator=(const TransferItems&) = delete;

    // Gives the end code, like TransferJob::transfer().
    JobState process();

protected:
    // What is logged of the list's own records.
    struct Lines {
        LogText<> setStart;
        LogText<> setEnd;
        LogText<> volume;
    };

    struct Item {
        std::wstring path;
        WIN32_FILE_ATTRIBUTE_DATA data{};
        uint32_t number = 0;
        bool directory = false;
    };

    TransferItems(TransferJob& job, JobActivitySourceReader& reader, const Lines& lines);

    // False with the last error, and with words for it in reason_ where the code's own are not
    // enough.
    virtual bool transfer(const Item& item) = 0;
    virtual void enterVolume(const std::wstring&) {}
    // Whether the item failed for something that is none of its own and passes: the run parks
    // itself then, and comes back to the item. Called where it would be written down as failed.
    virtual bool passes(const Item&, DWORD) { return false; }
    // All items are through. False when the run has to leave before it can be completed.
    virtual bool allThrough() { return true; }

    JobActivity& record_;
    ItemProgress progress_;
    std::string reason_;
    bool keptFile_ = false;  // the current file was left as it is: the run counts it as such

private:
    enum class Step { next, brokenOff, finished, ended };

    bool takePosition();
    bool advance(Step last, bool carryOn);
    Step step(uint32_t tag);
    Step volume();
    Step item(bool directory);
    Step itemFailed(const Item& item, unsigned long code);
    Step pause(unsigned long code);
    Step damaged();
    Step fail(unsigned long code);

    TransferJob& job_;
    JobActivitySourceReader& reader_;
    const Lines lines_;
    unsigned pausesTakenBack_ = 0;  // when the item was begun
    bool setEnded_ = false;
    bool fileDone_ = false;   // the file at the record's position is through
    uint64_t doneBytes_ = 0;  // its size
};

}  // namespace dorvo
