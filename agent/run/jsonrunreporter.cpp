#include "run/jsonrunreporter.h"

#include "base/text.h"
#include "data/progress.h"
#include "data/runoutcome.h"
#include "data/runwait.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

constexpr uint64_t periodMs = 500;

json_spirit::Ordered_object beginning(const JobDefinition& job) {
    return {{"id", job.id()}, {"name", toUtf8(job.name())}};
}

std::string line(const json_spirit::Ordered_object& object) {
    return json_spirit::write(json_spirit::Ordered_value(object));
}

}  // namespace

void JsonRunReporter::show(const JobActivity& record, uint64_t nowMs) {
    const auto state = static_cast<JobState>(record.state);
    const bool waits = waitsForServer(record);
    const bool due = state != JobState::paused && nowMs >= nextProgress_;
    const uint64_t until = waits ? waitsUntil(job_.id()) : 0;
    if (state == shown_ && !due && !(waits && (reasonUnsaid_ || until > until_))) {
        return;
    }
    shown_ = state;
    until_ = until;
    nextProgress_ = nowMs + periodMs;
    json_spirit::Ordered_object json = beginning(job_);
    json.push_back({"state", jobStateToString(state)});
    const Progress progress = progressOf(record);
    json.push_back({"percent", progress.percent});
    json.push_back({"bytes", progress.bytes});
    json.push_back({"totalBytes", progress.totalBytes});
    json.push_back({"files", progress.files});
    json.push_back({"fileCount", progress.fileCount});
    json.push_back({"speed", progress.bytesPerSecond});
    json.push_back({"remainTime", secondsLeftJson(progress)});
    json.push_back({"file", progress.file});
    if (waits) {
        RunWait wait = waitOf(job_, record, true);
        // What was announced is newer than the record; of neither, it is not known.
        wait.reason = reason_.empty() && record.endError != 0 ? wait.reason : reason_;
        appendWait(json, wait);
        reasonUnsaid_ = false;
    }
    terminal_.out(line(json));
}

void JsonRunReporter::reason(std::string text) {
    reason_ = std::move(text);
    reasonUnsaid_ = true;
}

void JsonRunReporter::finish(const RunResult& result) {
    json_spirit::Ordered_object json = beginning(job_);
    json.push_back({"summary", resultJson(result, job_)});
    terminal_.out(line(json));
    if (result.outcome == exitFailed) {
        terminal_.error(
            "agent: The run of job '" + toUtf8(job_.name()) + "' failed" +
            (result.error == 0 ? std::string() : ": " + runFailure(result.error, job_.user())) +
            ".");
    }
}

}  // namespace dorvo::agent
