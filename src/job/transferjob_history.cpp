// What a transferring job writes down of a run in its history.
#include <algorithm>
#include <limits>

#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "job/runtotals.h"
#include "job/transferjob.h"
#include "record/jobhistory.h"

namespace dorvo {

void TransferJob::openHistory() {
    std::wstring directory;
    jobDirectory(definition().id(), directory);
    const std::string instance = instanceText();
    history_ = std::make_unique<JobHistoryInfo>(toUtf8(jobHistoryInfoPath(directory, instance)));
    failed_ = std::make_unique<FailedItems>(toUtf8(jobHistoryErrorPath(directory, instance)),
                                            *activity().get());
}

void TransferJob::closeHistory() {
    history_.reset();
    failed_.reset();
}

const json_spirit::Object& TransferJob::historyAt(JobState endCode) {
    const JobActivity& record = *activity().get();
    JobHistoryInfo& info = *history_;
    info.instanceId(instanceText().c_str());
    info.type(kind());
    info.starttime(toFileTime(localToUtc(record.startTime)));
    info.endtime(toFileTime(utcTimeNow()));
    // A run that did not come to its end tells what it has done, not what it had ahead of it.
    const bool whole = endCode == JobState::completed;
    info.totalsize(static_cast<int64_t>(whole ? record.totalSize
                                              : std::min(record.doneSize, record.totalSize)));
    info.filescount(whole ? record.fileCount : std::min(record.fileIndex, record.fileCount));
    info.state(jobStateToString(endCode));
    info.speed(static_cast<int32_t>(
        std::min<uint64_t>(record.AverageSpeed(), std::numeric_limits<int32_t>::max())));
    return info.values();
}

void TransferJob::writeHistory(JobState endCode) {
    std::wstring directory;
    if (instanceText().empty() || !jobDirectory(definition().id(), directory)) {
        return;
    }
    historyAt(endCode);
    if (!history_->save() || !failed_->save()) {
        log(LogLevel::error, "Failed to write the history of job {%s}.\n",
            definition().id().c_str());
    }
    countFailedTotals(directory, directory + L"\\src", failed_->list());
    trimJobHistory(directory, instanceText());
}

}  // namespace dorvo
