// One run of a transferring job, from its first step to the end of its list, on the job's work
// thread: the steps that a backup's run and a restore's share.
//
// A friend of the job, which it borrows for the length of the run. What becomes of the run
// afterwards (completing, dropping, parking it at the storage) is the job's business. Steps answer
// false when the run has to leave; endCode() then says how it ends.
#pragma once

#include <string>

#include "base/log.h"
#include "job/transferjob.h"
#include "record/itemprogress.h"
#include "record/jobactsrcreader.h"

namespace dorvo {

class TransferRun {
protected:
    explicit TransferRun(TransferJob& job);

    // Releases the starter; `released` is the line to log then.
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
    bool openStorage();
    // The same, and begins to run; `begun` is the line to log then.
    bool startStorage(LogText<> begun);

    // Whether nothing is left of a resumed run but its end.
    bool isAtEndOfList() const { return atEnd_; }

    bool fail(unsigned long code);
    // A file of the run's own could not be read: parks the run while another program holds it.
    bool failUnlessHeld(unsigned long code);
    // Ends the run in error, unless it was a stop that caused the failure.
    bool refuse(unsigned long code);
    // The same, but parks the run because of something that passes.
    bool failOrPause(unsigned long code);
    // The same, but ends the run in error unless the host would rather wait for its server.
    bool failOrWait(unsigned long code);
    // Parks the run if a pause has broken its step off and was taken back since; else false.
    bool parkIfPauseIsTakenBack();
    // Parks the run, whatever the error is.
    bool pause(unsigned long code);
    bool carryOn();
    JobState endCode() const;

    TransferJob& transferJob_;
    JobActivity& record_;
    std::wstring directory_;  // of the job
    std::wstring list_;       // the source list's path
    bool resumed_ = false;    // an earlier start has begun this run
    bool listed_ = false;     // the list of this run is whole
    JobActivitySourceReader reader_;

private:
    bool findList();
    bool findPlace();
    void forgetList();

    const unsigned pausesTakenBack_;  // when the run began
    bool storageOpen_ = false;
    bool atEnd_ = false;            // of the list, when the run began
    unsigned long unrecorded_ = 0;  // why a failed item of the list could not be kept
};

}  // namespace dorvo
