#include "data/jobview.h"

#include "base/local_time.h"
#include "base/text.h"
#include "data/jobchoice.h"
#include "data/runrecord.h"
#include "data/schedules.h"
#include "job/statetable.h"
#include "jobdef/backupjobdefinition.h"
#include "jobdef/restorejobdefinition.h"
#include "record/jobactivityhandle.h"
#include "scheduler/scheduleclock.h"
#include "storage/wire_time.h"
#include "text/failuretext.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

using json_spirit::Ordered_array;
using json_spirit::Ordered_object;

constexpr size_t mostNotes = 20;  // of a kind, in text

std::string typeText(const JobDefinition& job) {
    switch (job.type()) {
        case JobDefinition::backupType: return "backup";
        case JobDefinition::restoreType: return "restore";
        default: return "unknown";
    }
}

std::string storageText(const JobDefinition& job) {
    return job.storage() == StorageKind::web ? "web" : "local";
}

std::string filterText(int32_t type) {
    switch (type) {
        case BackupJobDefinition::extensionsOnly: return "only";
        case BackupJobDefinition::extensionsLeftOut: return "skip";
        default: return "none";
    }
}

Ordered_array textsJson(const std::vector<std::wstring>& texts) {
    Ordered_array array;
    for (const std::wstring& text : texts) {
        array.emplace_back(toUtf8(text));
    }
    return array;
}

Ordered_object runJson(const PastRun& run) {
    Ordered_object json{{"instanceId", run.instanceId},
                        {"startTime", run.startTime},
                        {"endTime", run.endTime},
                        {"duration", run.seconds},
                        {"state", run.state},
                        {"files", run.files},
                        {"totalSize", run.totalSize},
                        {"speed", run.bytesPerSecond},
                        {"failed", failedJson(run.failed)}};
    appendNotes(json, run.notes);
    return json;
}

std::string joined(const std::vector<std::wstring>& texts, const char* separator) {
    std::string text;
    for (const std::wstring& part : texts) {
        text += (text.empty() ? "" : separator) + printable(toUtf8(part));
    }
    return text;
}

std::string runText(const PastRun& run) {
    const std::string start = localTimeText(ticksOfText(run.startTime));
    std::string text = "  " + (start.empty() ? run.startTime : start) + "  " + run.state + "  " +
                       durationText(run.seconds) + "  " + countText(run.files, "file") + "  " +
                       bytesText(run.totalSize) + "  " + bytesText(run.bytesPerSecond) + "/s  " +
                       run.instanceId + "\n";
    for (const FailedItem& item : run.failed) {
        text += "    failed: " + failedText(item) + "\n";
    }
    for (const std::string& line : noteLines(run.notes.leftOut, "left out", mostNotes)) {
        text += "    " + line + "\n";
    }
    for (const std::string& line : noteLines(run.notes.warnings, "warning", mostNotes)) {
        text += "    " + line + "\n";
    }
    return text;
}

std::string restoreText(const RestoreJobDefinition& job) {
    const std::string all = "everything";
    const std::string paths = job.source().empty() ? all : joined(job.source(), "\n         ");
    const std::string target =
        job.target().empty() ? "where they were" : printable(toUtf8(job.target()));
    return "Paths    " + paths + "\nFrom     run " + printable(job.jobInstanceId()) +
           "\n         of job " + printable(job.jobDefinitionId()) + " on machine " +
           printable(job.machine()) + "\nTo       " + target +
           (job.prefix().empty() ? "" : " in place of " + printable(toUtf8(job.prefix()))) +
           "\nConflict " + conflictText(job.conflict()) + "\n";
}

}  // namespace

JobView viewOf(const JobDefinition& job) {
    JobView view{.job = &job};
    const JobActivity& record = view.record;
    const char* const id = job.id().c_str();
    JobActivityHandle shared;
    view.live = shared.open(id, false);
    view.recorded = JobActivityHandle::read(id, view.record);
    view.lastCompleted = record.lastRunState == static_cast<int32_t>(JobState::completed)
                             ? localToUtc(record.lastRunTime)
                             : lastCompletion(job.id());
    if (const auto* const backup = dynamic_cast<const BackupJobDefinition*>(&job)) {
        const ScheduleClock& clock = systemScheduleClock();
        const int64_t due = nextDue(backup->schedule(), clock);
        view.nextRun = due == -1 || record.nextRunTime == 0 ? ticksOfInstant(due)
                                                            : localToUtc(record.nextRunTime);
        view.overdue =
            isOverdue(backup->schedule(),
                      view.lastCompleted == 0 ? std::nullopt
                                              : std::optional(instantOfTicks(view.lastCompleted)),
                      clock);
    }
    if (view.recorded) {
        view.wait = waitOf(job, record, view.live);
        view.wait.until = record.pausedManually != 0 ? view.nextRun : view.wait.until;
    }
    return view;
}

std::string waitText(const JobView& view) {
    const bool waits =
        !view.wait.reason.empty() && view.record.pausedManually == 0 && !awaitsAnswer(view.record);
    return waits ? "Job '" + printable(toUtf8(view.job->name())) + "' waits " +
                       waitWords(view.wait) + "."
                 : std::string();
}

std::string unreadText(const UnreadJob& job) {
    return "Job '" + job.id + "' does not run: " + job.why + ". 'agent remove " + job.id +
           "' deletes it with its history.";
}

Ordered_object unreadJson(const UnreadJob& job) {
    return {{"id", job.id},     {"name", ""},
            {"user", ""},       {"type", "unknown"},
            {"storage", ""},    {"state", unreadState},
            {"nextRun", ""},    {"lastCompleted", wire_time(lastCompletion(job.id))},
            {"overdue", false}, {"live", false},
            {"reason", job.why}};
}

std::string overdueText(const JobView& view) {
    const auto* const backup = dynamic_cast<const BackupJobDefinition*>(view.job);
    if (!view.overdue || backup == nullptr) {
        return {};
    }
    const std::string name = printable(toUtf8(view.job->name()));
    return "Job '" + name + "' is overdue: it should run " + scheduleText(backup->schedule()) +
           ", and " +
           (view.lastCompleted == 0 ? "has never completed"
                                    : "last completed on " + localTimeText(view.lastCompleted)) +
           ". See 'agent show \"" + name + "\"'.";
}

std::string stateText(const JobView& view) {
    if (!view.recorded) {
        return jobStateToString(JobState::none);
    }
    const auto state = static_cast<JobState>(view.record.state);
    return isUnderWay(state) && !view.live ? "interrupted" : jobStateToString(view.record.state);
}

Ordered_object summaryJson(const JobView& view) {
    Ordered_object json{{"id", view.job->id()},
                        {"name", toUtf8(view.job->name())},
                        {"user", view.job->user()},
                        {"type", typeText(*view.job)},
                        {"storage", storageText(*view.job)},
                        {"state", stateText(view)},
                        {"nextRun", wire_time(view.nextRun)},
                        {"lastCompleted", wire_time(view.lastCompleted)},
                        {"overdue", view.overdue},
                        {"live", view.live}};
    if (view.recorded && unfinished(view.record)) {
        const Progress progress = progressOf(view.record);
        const Ordered_object more{{"progress", progress.percent},
                                  {"files", progress.files},
                                  {"fileCount", progress.fileCount},
                                  {"bytes", progress.bytes},
                                  {"totalBytes", progress.totalBytes},
                                  {"speed", progress.bytesPerSecond},
                                  {"remainTime", secondsLeftJson(progress)},
                                  {"file", progress.file}};
        json.insert(json.end(), more.begin(), more.end());
        if (!view.wait.reason.empty()) {
            appendWait(json, view.wait);
        }
    }
    return json;
}

Ordered_object detailJson(const JobView& view, const std::vector<PastRun>& runs) {
    Ordered_object json = summaryJson(view);
    json.push_back({"location", view.job->storage() == StorageKind::local
                                    ? toUtf8(view.job->location())
                                    : serverText()});
    if (const auto* const backup = dynamic_cast<const BackupJobDefinition*>(view.job)) {
        const Ordered_object more{{"source", textsJson(backup->source())},
                                  {"filter", filterText(backup->filterType())},
                                  {"extensions", textsJson(backup->extensions())},
                                  {"compress", backup->compress()},
                                  {"schedule", scheduleJson(backup->schedule())}};
        json.insert(json.end(), more.begin(), more.end());
    } else if (const auto* const restore = dynamic_cast<const RestoreJobDefinition*>(view.job)) {
        const Ordered_object more{{"source", textsJson(restore->source())},
                                  {"machine", restore->machine()},
                                  {"jobdefinitionid", restore->jobDefinitionId()},
                                  {"jobinstanceid", restore->jobInstanceId()},
                                  {"target", toUtf8(restore->target())},
                                  {"prefix", toUtf8(restore->prefix())},
                                  {"conflict", conflictText(restore->conflict())}};
        json.insert(json.end(), more.begin(), more.end());
    }
    Ordered_array past;
    for (const PastRun& run : runs) {
        past.emplace_back(runJson(run));
    }
    json.push_back({"runs", past});
    return json;
}

std::string detailText(const JobView& view, const std::vector<PastRun>& runs) {
    std::string text =
        "Job      " + printable(toUtf8(view.job->name())) + "\nId       " + view.job->id() +
        "\nType     " + typeText(*view.job) + " of user " + view.job->user() + ", " +
        (view.job->storage() == StorageKind::web ? "at the server"
                                                 : "in " + toUtf8(view.job->location())) +
        "\n";
    if (const auto* const backup = dynamic_cast<const BackupJobDefinition*>(view.job)) {
        text += "Paths    " + joined(backup->source(), "\n         ") + "\n";
        const std::string filter = filterText(backup->filterType());
        text += "Filter   " + filter;
        text += filter == "none" ? "\n" : " " + joined(backup->extensions(), ", ") + "\n";
        text +=
            std::string("Content  ") + (backup->compress() ? "compressed, " : "") + "encrypted\n";
        text += "Schedule " + scheduleText(backup->schedule());
        text += view.nextRun == 0 ? "\n" : ", next run " + localTimeText(view.nextRun) + "\n";
    } else if (const auto* const restore = dynamic_cast<const RestoreJobDefinition*>(view.job)) {
        text += restoreText(*restore);
    }
    text += "State    " + stateText(view);
    text += view.lastCompleted == 0
                ? ", has never completed\n"
                : ", last completed " + localTimeText(view.lastCompleted) + "\n";
    if (view.recorded && unfinished(view.record)) {
        constexpr size_t wide = 160;
        text += "Run     " + progressLine(progressOf(view.record), wide) + "\n";
        if (!view.wait.reason.empty()) {
            text += "Waits    " + waitWords(view.wait) + "\n";
        }
    }
    text += runs.empty() ? "No finished runs\n" : "Last runs\n";
    for (const PastRun& run : runs) {
        text += runText(run);
    }
    return text;
}

}  // namespace dorvo::agent
