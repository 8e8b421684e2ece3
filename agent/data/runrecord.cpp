#include "data/runrecord.h"

#include <algorithm>

#include "base/local_time.h"
#include "base/text.h"
#include "base/uuid.h"
#include "data/runhistory.h"
#include "job/statetable.h"
#include "record/jobactivityhandle.h"
#include "record/jobwait.h"
#include "storage/wire_time.h"
#include "text/failuretext.h"
#include "text/format.h"

namespace dorvo::agent {

std::string instanceIdOf(const JobActivity& record) {
    return uuidText(record.instanceId);
}

RecordLook lookAtRecord(const std::string& jobId, JobActivity& record) {
    JobActivityHandle shared;
    const bool mapped = shared.open(jobId.c_str(), false);
    // Anybody may have written into what is shared: it is believed only where there is no file.
    if (!JobActivityHandle::read(jobId.c_str(), record)) {
        if (!mapped || !shared->recognised()) {
            return RecordLook::none;
        }
        record = *shared.get();
    }
    return mapped ? RecordLook::mapped : RecordLook::onDisk;
}

std::optional<ExitCode> outcomeOf(const JobActivity& record) {
    switch (static_cast<JobState>(record.state)) {
        case JobState::completed: return record.failedItems == 0 ? exitDone : exitSomeFailed;
        case JobState::cancelled: return exitStopped;
        case JobState::paused:
            return record.pausedManually != 0 ? std::optional(exitStopped) : std::nullopt;
        case JobState::idle:
        case JobState::starting:
        case JobState::running:
        case JobState::completing:
        case JobState::pausing:
        case JobState::canceling: return std::nullopt;
        default: return exitFailed;
    }
}

bool waitsForServer(const JobActivity& record) {
    return static_cast<JobState>(record.state) == JobState::paused && record.pausedManually == 0;
}

bool runsOrWaits(const JobActivity& record) {
    const auto state = static_cast<JobState>(record.state);
    return !outcomeOf(record) && state != JobState::none && state != JobState::idle;
}

bool unfinished(const JobActivity& record) {
    return isUnfinished(static_cast<JobState>(record.state));
}

Progress progressOf(const JobActivity& record) {
    const bool measured = record.usedTime != 0 && record.AverageSpeed() != 0;
    const bool known = measured || record.progress() == 100;
    return {.percent = record.progress(),
            .files = std::min(record.fileIndex, record.fileCount),
            .fileCount = record.fileCount,
            .bytes = std::min(record.doneSize + record.fileOffset, record.totalSize),
            .totalBytes = record.totalSize,
            .bytesPerSecond = record.speed(),
            .secondsLeft = known ? std::optional(record.remainTime()) : std::nullopt,
            .file = toUtf8(record.currentFilePath())};
}

json_spirit::Ordered_value secondsLeftJson(const Progress& progress) {
    return progress.secondsLeft ? json_spirit::Ordered_value(*progress.secondsLeft)
                                : json_spirit::Ordered_value();
}

std::string progressLine(const Progress& progress, size_t width) {
    std::string percent = std::to_string(progress.percent) + "%";
    percent.insert(0, percent.size() < 4 ? 4 - percent.size() : 0, ' ');
    std::string line = percent + "  " + std::to_string(progress.files) + "/" +
                       countText(progress.fileCount, "file") + "  " + bytesText(progress.bytes) +
                       " of " + bytesText(progress.totalBytes) + "  " +
                       bytesText(progress.bytesPerSecond) + "/s";
    if (progress.secondsLeft.value_or(0) > 0) {
        line += "  " + durationText(*progress.secondsLeft) + " left";
    }
    constexpr size_t gap = 2;
    constexpr size_t leastOfFile = 12;
    const size_t used = columnsOf(line);
    if (!progress.file.empty() && used + gap + leastOfFile <= width) {
        line += "  " + shortened(printable(progress.file), width - used - gap);
    }
    return columnsOf(line) <= width ? line : shortened(line, width);
}

std::string whyOf(const JobDefinition& job, uint32_t code) {
    return code == 0 ? std::string() : runFailure(code, job.user(), loadWaitWords(job.id(), code));
}

RunWait waitOf(const JobDefinition& job, const JobActivity& record, bool live) {
    RunWait wait;
    if (!unfinished(record)) {
        return wait;
    }
    if (static_cast<JobState>(record.state) != JobState::paused) {
        wait.reason =
            !live ? "its process has ended: a resident agent goes on with it, or 'agent resume'"
            : awaitsAnswer(record) ? "the server works on the run and has not answered yet"
                                   : "";
        return wait;
    }
    if (record.hasInstance()) {
        wait.since = ticksOfText(loadRun(job.id(), instanceIdOf(record)).endTime);
    }
    if (record.pausedManually != 0) {
        wait.reason = "paused by the user: go on with it with 'agent resume'";
        return wait;
    }
    wait.reason =
        record.endError == 0 ? "interrupted when its agent ended" : whyOf(job, record.endError);
    wait.until = live ? waitsUntil(job.id()) : 0;  // nobody resumes it where no process has it
    return wait;
}

// A resume may be late, and is tried again: when, nobody has written down.
uint64_t waitsUntil(const std::string& jobId) {
    const uint64_t until = loadWait(jobId);
    return until > utcTimeNow() ? until : 0;
}

bool awaitsAnswer(const JobActivity& record) {
    return unfinished(record) && static_cast<JobState>(record.state) != JobState::paused &&
           record.currentFileState == static_cast<uint32_t>(CurrentFileState::awaited);
}

std::string waitWords(const RunWait& wait) {
    return (wait.since == 0 ? std::string() : "since " + localTimeText(wait.since) + ": ") +
           wait.reason +
           (wait.until == 0 ? std::string()
                            : "; it goes on by itself at " + localTimeText(wait.until));
}

void appendWait(json_spirit::Ordered_object& json, const RunWait& wait) {
    json.push_back({"reason", wait.reason});
    json.push_back({"since", wire_time(wait.since)});
    json.push_back({"until", wire_time(wait.until)});
}

bool hasUnfinishedRun(const std::string& jobId) {
    JobActivity record{};
    return JobActivityHandle::read(jobId.c_str(), record) && unfinished(record);
}

}  // namespace dorvo::agent
