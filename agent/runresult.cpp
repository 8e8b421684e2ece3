#include "runresult.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "base/local_time.h"
#include "base/paths.h"
#include "base/uuid.h"
#include "failuretext.h"
#include "job/runtotals.h"
#include "progress.h"

namespace dorvo::agent {
namespace {

uint32_t walkedFiles(const JobDefinition& job) {
    std::wstring directory;
    SourceTotals totals;
    const bool counted = job.type() == JobDefinition::backupType &&
                         jobDirectory(job.id(), directory) && loadRunTotals(directory, totals);
    return counted ? totals.files : 0;
}

}  // namespace

std::string instanceOf(const JobActivity& record) {
    GUID id;
    static_assert(sizeof(id) == sizeof(record.instanceId));
    std::memcpy(&id, record.instanceId.data(), sizeof(id));
    return uuidText(id);
}

RunResult resultOf(const JobActivity& record, ExitCode outcome, uint32_t walkedFiles,
                   std::vector<FailedItem> failed) {
    const bool done = static_cast<JobState>(record.state) == JobState::completed;
    const Progress progress = progressOf(record);
    const uint32_t listed = record.fileCount;
    return {.outcome = outcome,
            .state = jobStateToString(record.state),
            .instanceId = instanceOf(record),
            .percent = progress.percent,
            .files = done ? listed - std::min(record.failedItems, listed) : progress.files,
            .unchangedFiles = walkedFiles - std::min(listed, walkedFiles),
            .bytes = done ? record.totalSize : progress.bytes,
            .unchangedBytes = record.unchangedSize,
            .wireBytes = record.wireSize,
            .bytesPerSecond = record.AverageSpeed(),
            .seconds = record.usedTime / ticksPerSecond,
            .failedItems = record.failedItems,
            .failed = std::move(failed),
            .notes = {},
            .error = outcome == exitFailed ? record.endError : 0};
}

RunResult loadResult(const JobDefinition& job, const JobActivity& record, ExitCode outcome) {
    const std::string instance = instanceOf(record);
    RunResult result =
        resultOf(record, outcome, walkedFiles(job), loadFailedItems(job.id(), instance));
    result.notes = loadNotes(job.id(), instance);
    return result;
}

json_spirit::Ordered_object resultJson(const RunResult& result, const JobDefinition& job) {
    json_spirit::Ordered_object json{{"state", result.state},
                                     {"exitCode", static_cast<int>(result.outcome)},
                                     {"instanceId", result.instanceId},
                                     {"files", result.files},
                                     {"bytes", result.bytes},
                                     {"unchangedFiles", result.unchangedFiles},
                                     {"unchangedBytes", result.unchangedBytes},
                                     {"wireBytes", result.wireBytes},
                                     {"speed", result.bytesPerSecond},
                                     {"duration", result.seconds},
                                     {"failed", failedJson(result.failed)}};
    appendNotes(json, result.notes);
    if (result.error != 0) {
        json.push_back({"error", runFailure(result.error, job.user())});
    }
    return json;
}

}  // namespace dorvo::agent
