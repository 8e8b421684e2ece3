#include "data/runwait.h"

#include "base/local_time.h"
#include "data/runhistory.h"
#include "data/runoutcome.h"
#include "data/runresult.h"
#include "record/jobwait.h"
#include "storage/wire_time.h"
#include "text/failuretext.h"
#include "text/timetext.h"

namespace dorvo::agent {

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
        wait.since = ticksOfText(loadRun(job.id(), instanceOf(record)).endTime);
    }
    if (record.pausedManually != 0) {
        wait.reason = "paused by the user: go on with it with 'agent resume'";
        return wait;
    }
    wait.reason = record.endError == 0 ? "interrupted when its agent ended"
                                       : runFailure(record.endError, job.user());
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

}  // namespace dorvo::agent
