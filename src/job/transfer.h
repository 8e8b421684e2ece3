// One start of a run of a job: what moves items between this machine and a storage back end, from
// the start event to the final state. What a backup and a restore have in common.
//
// The steps up to the storage's start (transfer.cpp): each answers false when the run has to leave.
// The items of the source list, one at a time, from where the activity record says the list stands
// (transfer_items.cpp): the record's position is that of the item being worked on, so a run that is
// cut off anywhere comes back to it, and an item that is through is never repeated. The end
// (transfer_end.cpp): at the storage, in the history, on disk, and last on record.
//
// A run that loses its network, or has no room left on a disk, parks itself and is resumed at the
// item that failed: 30 seconds later at first, minutes later when it comes no further. Items that
// fail for good are written down, and the run goes on. What a failure means says transferfailure.h.
//
// An object lives on the job's work thread for one start, or as long as a run is ended that a
// process has left. It borrows the job, of which it is the other half, and all of its context.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/disk_room.h"
#include "base/log.h"
#include "job/job.h"
#include "job/storagefactory.h"
#include "job/transferfailure.h"
#include "record/itemprogress.h"
#include "record/jobactsrcreader.h"
#include "record/jobhistoryinfo.h"
#include "storage/faileditems.h"

namespace dorvo {

// What a run uses of the world around it, for tests to replace; an empty function stands for the
// real thing.
struct TransferServices {
    // Whether a server that is not to be found may appear yet: the option.
    std::function<bool()> waitForServer;
    // Bytes that still fit where the folder is; nothing when the system does not say.
    std::function<std::optional<uint64_t>(const std::wstring& folder)> roomAt;
    // Whether both still fit, which may lie on one disk.
    std::function<bool(const DiskNeed& one, const DiskNeed& other)> fits;

    // The same, without empty functions.
    TransferServices whole() const;
};

// What one start of a run leaves to the next while the process lives.
struct TransferMemory {
    ResumeBackoff backoff;
    EndFailures endFailures;  // to complete the run, or to start it for that
    std::string completed;    // the run that its storage has completed
};

class Transfer {
public:
    struct Context {
        Job& job;
        const TransferServices& services;  // whole
        TransferMemory& memory;
        // Finishes the run, by cleanup(): what the job adds to it.
        std::function<JobState(JobState)> cleanup;
        // The run ends for good; its final state is about to be recorded.
        std::function<void()> runEnds = {};
    };

    virtual ~Transfer() = default;
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    // The body of Job::run(). Gives the run's error code.
    unsigned long carryOut();
    // Finishes the run at the storage and on disk: completes it there, drops one that was cancelled
    // or has failed, leaves a paused one as it is. Gives the state in which the run really ends:
    // one that could not be completed is paused, or has failed.
    JobState cleanup(JobState endCode);
    // Ends a run that its process has left, here alone.
    void endLeft(JobState end);

protected:
    // What the kind of run says of itself.
    struct Words {
        const char* kind;  // in the history
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

    Transfer(Context context, const Words& words);

    // The kind's part. The run up to the end of its list, by the steps and processItems(). Gives
    // the end code: completed when the list is through, else brokenOffCode(). May throw
    // std::exception.
    virtual JobState run() = 0;
    // False with the last error, and with words for it in reason_ where the code's own are not
    // enough.
    virtual bool transfer(const Item& item) = 0;
    virtual void enterVolume(const std::wstring&) {}
    // Whether the item failed for something that is none of its own and passes: the run parks
    // itself then, and comes back to the item. Called where it would be written down as failed.
    virtual bool passes(const Item&, DWORD) { return false; }
    // The item is written down as failed: there is no other try for which to keep what there is of
    // it.
    virtual void givenUp(const Item&) {}
    // All items are through. False when the run has to leave before it can be completed.
    virtual bool allThrough() { return true; }
    // Takes away what the run keeps on disk for its next start, where the end code is final.
    virtual void tidyUp(JobState endCode) = 0;
    // Lets go of what run() has open, before the run is finished. It may have thrown.
    virtual void letGo() {}

    // The run's storage. Each is false with the last error. Opening makes it; dropping makes it
    // where there is none yet.
    virtual bool openStorage() = 0;
    virtual bool completeAtStorage() = 0;
    // A run that turns out to be completed there ends as such, whatever the end code was.
    virtual bool dropAtStorage(JobState& endCode) = 0;
    // That was answered, and is on record: nobody has to ask again.
    virtual void forgetDrop() {}
    virtual void closeStorage() = 0;
    // What a failure to complete the run means, the last of these.
    virtual FailureAction endAction(const Failure& failure, const EndFailures& failures) const = 0;
    // Whether a run that has nothing left but its end opens its storage before.
    virtual bool opensToEnd() const = 0;

    // Steps. Releases the starter; `released` is the line to log then.
    bool begin(LogText<> released);
    // Takes up what is on record of the run. Parks it when that cannot be read for now.
    bool takeUp();
    // Makes room for a new list. Only the making of a list that was never finished can have left
    // failed items, which go too.
    bool beginList();
    // Tells the record what the list holds. The totals go to disk: the list is whole with them.
    bool endList(const SourceTotals& listed, const SourceTotals& walked);
    // Writes down what of the list has failed.
    void addFailed(const std::wstring& path, unsigned long code, const std::string& reason = {});
    // Whether that could be kept of each; false with the last error of the first.
    bool allRecorded() const;
    // Opens the run at its storage, once.
    bool startStorage();
    // The same, and begins to run; `begun` is the line to log then.
    bool startItems(LogText<> begun);
    // Whether nothing is left of a resumed run but its end.
    bool isAtEndOfList() const { return atEnd_; }
    // False when a stop or a pause has come.
    bool carryOn() { return job_.pollEvent(0); }
    // The items of the open list; gives the end code.
    JobState processItems();
    // What a run that leaves before its end is: what the state says was asked, else failed.
    JobState brokenOffCode();

    // Ways to leave, all false.
    bool fail(unsigned long code);
    // A file of the run's own could not be read: parks the run while another program holds it.
    bool failUnlessHeld(unsigned long code);
    // Ends the run in error, unless it was a stop that caused the failure.
    bool refuse(unsigned long code);
    // The same, but parks the run because of something that passes.
    bool failOrPause(unsigned long code);
    // The same, but ends the run in error unless the host would rather wait for its server.
    bool failOrWait(unsigned long code);
    // Parks the run, whatever the error is.
    bool pause(unsigned long code);
    // Announces what the run has met, with what the service has said of it on record.
    void tellFailure(unsigned long code);
    // Parks the run, true, if a pause has broken its step off and was taken back since.
    bool parkIfPauseIsTakenBack();

    const TransferServices& services() const { return services_; }
    TransferMemory& memory() { return memory_; }
    // Of the job.
    const std::string& jobId() const { return id_; }
    HANDLE stopEvent() const { return job_.stopEvent(); }
    std::string instanceText() const { return job_.instanceText(); }
    std::string reasonText(unsigned long code) const { return job_.reasonText(code); }
    void flush() { job_.activity().sync(); }
    void publish() { job_.activity().publish(); }

    StorageRun storageRun(StorageUse use);
    // The run's history document as it would be if the run ended now.
    const json_spirit::Object& historyAt(JobState endCode);

    JobActivity& record_;
    ItemProgress progress_;
    std::wstring directory_;  // of the job
    std::wstring list_;       // the source list's path
    JobActivitySourceReader reader_;
    SourceTotals totals_;     // of the list
    bool resumed_ = false;    // an earlier start has begun this run
    bool listed_ = false;     // the list of this run is whole
    bool atStorage_ = false;  // the storage may know of the run, or has to
    std::string reason_;      // of the current item's failure
    bool keptFile_ = false;   // the current file was left as it is: the run counts it as such

private:
    enum class Step { next, brokenOff, finished, ended };

    bool findList();
    bool findPlace();
    bool forgetList();

    bool takePosition();
    bool advance(Step last, bool carryOn);
    Step step(uint32_t tag);
    Step volume();
    Step item(bool directory);
    Step itemFailed(const Item& item, unsigned long code);
    Step damaged();
    static Step ended(bool) { return Step::ended; }

    bool stopping() const;
    Failure failureOf(unsigned long code);
    // Parks the run, to be resumed.
    void park();
    void openHistory();
    void closeHistory();
    void writeHistory(JobState endCode);
    void finish(JobState endCode);
    JobState complete();
    JobState endFailed(unsigned long code);
    JobState drop(JobState endCode);
    void resumeLater();
    void logRetry(const char* verb, unsigned long code) const;

    Job& job_;
    const TransferServices& services_;
    TransferMemory& memory_;
    const std::function<JobState(JobState)> cleanup_;
    const std::function<void()> runEnds_;
    const Words words_;
    const std::string id_;
    std::unique_ptr<JobHistoryInfo> history_;
    std::unique_ptr<FailedItems> failed_;
    unsigned long runError_ = 0;         // why the run ends
    bool retry_ = false;                 // the run ends because of something that passes
    bool errorNotified_ = false;         // observers know of runError_
    const unsigned runPausesTakenBack_;  // when the run began
    unsigned itemPausesTakenBack_ = 0;   // when the item was begun
    bool storageOpen_ = false;
    bool atEnd_ = false;            // of the list, when the run began
    unsigned long unrecorded_ = 0;  // why a failed item of the list could not be kept
    bool setEnded_ = false;
    bool fileDone_ = false;   // the file at the record's position is through
    uint64_t doneBytes_ = 0;  // its size
};

}  // namespace dorvo
