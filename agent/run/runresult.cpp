#include "run/runresult.h"

#include <windows.h>

#include <algorithm>

#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"
#include "data/runrecord.h"
#include "job/runtotals.h"
#include "record/jobwait.h"
#include "text/failuretext.h"
#include "text/format.h"

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

std::string unfinishedText(const JobDefinition& job, const RunResult& result,
                           const std::string& verb) {
    if (result.outcome == exitFailed) {
        const std::string why = whyFailed(result, job);
        return verb + " failed" + (why.empty() ? why : ": " + why) + ".";
    }
    return result.state == jobStateToString(JobState::cancelled)
               ? verb + " is cancelled."
               : verb + " is paused at " + std::to_string(result.percent) +
                     "%: go on with 'agent resume \"" + toUtf8(job.name()) + "\"'.";
}

std::string keptText(const RunResult& result) {
    if (result.keptFiles == 0) {
        return {};
    }
    const std::string text = ", " + countText(result.keptFiles, "file") + " (" +
                             bytesText(result.keptBytes) + ") kept as ";
    return text + (result.keptFiles == 1 ? "it was: --conflict overwrite replaces it"
                                         : "they were: --conflict overwrite replaces them");
}

}  // namespace

RunWords wordsOf(const JobDefinition& job) {
    const bool web = job.storage() == StorageKind::web;
    const std::string place = web ? "the server" : "the folder of its backups";
    if (job.type() != JobDefinition::backupType) {
        return {.verb = "Restore",
                .looking = "is looking for what to bring back",
                .ahead = "to restore",
                .done = "restored",
                .place = place,
                .viaNetwork = web,
                .restores = true};
    }
    return {.verb = "Backup",
            .looking = "is looking for what has changed",
            .ahead = web ? "to send" : "to store",
            .done = web ? "sent" : "stored",
            .place = place,
            .viaNetwork = web,
            .restores = false};
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
            .instanceId = instanceIdOf(record),
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
            .error = outcome == exitFailed ? record.endError : 0,
            .said = {}};
}

RunResult loadResult(const JobDefinition& job, const JobActivity& record, ExitCode outcome) {
    const std::string instance = instanceIdOf(record);
    RunResult result =
        resultOf(record, outcome, countsOf(job), loadFailedItems(job.id(), instance));
    result.notes = loadNotes(job.id(), instance);
    if (result.error != 0) {
        result.said = loadWaitWords(job.id(), result.error);
    }
    return result;
}

std::string whyFailed(const RunResult& result, const JobDefinition& job) {
    return result.error == 0 ? std::string() : runFailure(result.error, job.user(), result.said);
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
        json.push_back({"error", whyFailed(result, job)});
    }
    return json;
}

std::string runSummary(const JobDefinition& job, const RunResult& result) {
    const RunWords words = wordsOf(job);
    if (result.outcome == exitFailed || result.outcome == exitStopped) {
        return unfinishedText(job, result, words.verb);
    }
    std::string text = words.verb + " completed in " + durationText(result.seconds) + " (" +
                       bytesText(result.bytesPerSecond) +
                       "/s): " + countText(result.files, "file") + " " + words.done + " (" +
                       bytesText(result.bytes);
    text += words.viaNetwork ? ", " + bytesText(result.wireBytes) + " over the network)" : ")";
    if (!words.restores) {
        text += ", " + countText(result.unchangedFiles, "file") + " unchanged (" +
                bytesText(result.unchangedBytes) + ")";
    }
    if (const size_t leftOut = result.notes.leftOut.size(); leftOut > 0) {
        text += ", " + std::to_string(leftOut) + " left out";
    }
    if (result.failedItems != 0) {
        text += ", " + std::to_string(result.failedItems) + " failed";
    }
    return text + keptText(result) + ".";
}

}  // namespace dorvo::agent
