#include "data/runresult.h"

#include <windows.h>

#include <algorithm>

#include "base/local_time.h"
#include "base/paths.h"
#include "base/uuid.h"
#include "job/runtotals.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

RunCounts countsOf(const JobDefinition& job) {
    RunCounts counts{.restores = job.type() != JobDefinition::backupType};
    std::wstring directory;
    if (!jobDirectory(job.id(), directory)) {
        return counts;
    }
    SourceTotals walked;
    if (!counts.restores && loadRunTotals(directory, walked)) {
        counts.walkedFiles = walked.files;
    }
    counts.failed = loadFailedTotals(directory);
    return counts;
}

// What is left of a sum; a record may hold anything.
template <class Number>
Number without(Number sum, Number part) {
    return sum - std::min(part, sum);
}

}  // namespace

std::string instanceOf(const JobActivity& record) {
    return uuidText(record.instanceId);
}

RunResult resultOf(const JobActivity& record, ExitCode outcome, const RunCounts& counts,
                   std::vector<FailedItem> failed) {
    const bool done = static_cast<JobState>(record.state) == JobState::completed;
    const uint32_t listed = record.fileCount;
    const uint64_t passedFiles = done ? listed : std::min(record.fileIndex, listed);
    const uint64_t passedBytes =
        std::min(done ? record.totalSize : record.doneSize, record.totalSize);
    const uint64_t keptFiles = counts.restores ? record.keptFiles() : 0;
    const uint64_t keptBytes = counts.restores ? record.unchangedSize : 0;
    return {.outcome = outcome,
            .state = jobStateToString(record.state),
            .instanceId = instanceOf(record),
            .percent = record.progress(),
            .files = without(passedFiles, counts.failed.files + keptFiles),
            .unchangedFiles = counts.restores ? 0 : without(counts.walkedFiles, listed),
            .bytes = without(passedBytes, counts.failed.size + keptBytes),
            .unchangedBytes = record.unchangedSize,
            .keptFiles = keptFiles,
            .keptBytes = keptBytes,
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
        resultOf(record, outcome, countsOf(job), loadFailedItems(job.id(), instance));
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
    if (job.type() != JobDefinition::backupType) {
        json.push_back({"keptFiles", result.keptFiles});
        json.push_back({"keptBytes", result.keptBytes});
    }
    appendNotes(json, result.notes);
    if (result.error != 0) {
        json.push_back({"error", runFailure(result.error, job.user())});
    }
    return json;
}

}  // namespace dorvo::agent
