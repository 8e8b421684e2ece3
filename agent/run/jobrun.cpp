#include "run/jobrun.h"

#include "base/text.h"
#include "data/runrecord.h"
#include "jobdef/backupjobdefinition.h"
#include "run/runfollow.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/failuretext.h"
#include "text/interrupt.h"

namespace dorvo::agent {
namespace {

int leaveRun(Terminal& terminal, const JobDefinition& job, bool json) {
    if (!json) {
        const std::string name = toUtf8(job.name());
        terminal.out("The resident agent runs the job '" + name +
                     "': follow it with 'agent watch \"" + name + "\"'.");
        return exitDone;
    }
    JobActivity record{};
    lookAtRecord(job.id(), record);
    makeRunReporter(terminal, job, true)->show(record, 0);
    return exitDone;
}

// What is refused comes too late: the run has ended, or its agent has, which the next look shows.
void pauseRun(Engine& engine, const std::string& id) {
    try {
        engine.tell(JobVerb::pause, id);
    } catch (const AgentError&) {
    }
}

bool runsWhenSubmitted(const JobDefinition& job) {
    const auto* const backup = dynamic_cast<const BackupJobDefinition*>(&job);
    return backup == nullptr || backup->schedule().kind == ScheduleKind::once;
}

}  // namespace

void RunFlags::describe(CLI::App& command) {
    command.add_flag("--no-wait", noWait, "Leave the run to the resident agent");
    command.add_flag("--json", json, "One JSON object a line");
}

void RunFlags::check(const Engine& engine) const {
    if (noWait && !engine.resident()) {
        throw AgentError(
            std::string("--no-wait leaves the run to the resident agent, and none runs: ") +
            residentHint);
    }
}

void startRun(Engine& engine, const JobDefinition& job, bool changed) {
    if (changed) {
        engine.submit(job);
    }
    if (!changed || !runsWhenSubmitted(job)) {
        engine.tell(JobVerb::start, job.id());
    }
}

int runJob(Engine& engine, Terminal& terminal, const JobDefinition& job,
           const std::function<void()>& begin, const RunFlags& flags) {
    if (flags.noWait) {
        begin();
        return leaveRun(terminal, job, flags.json);
    }
    RunEvents events(&engine);
    const Interrupt interrupt;
    begin();
    const auto reporter = makeRunReporter(terminal, job, flags.json);
    const RunEnd end = RunFollower(job, events, *reporter).follow(interrupt.event(), [&] {
        // A window that is closed ends this process only; a resident agent goes on.
        if (interrupt.typed() || !engine.resident()) {
            pauseRun(engine, job.id());
        }
    });
    if (!end.lost.empty()) {
        throw AgentError(end.lost, end.code);
    }
    if (end.code == exitDone && end.record.startTime == 0) {
        // The system made no thread: the record still says how the former run ended.
        const std::string name = toUtf8(job.name());
        throw AgentError("The job '" + name + "' did not run, and " + logSaysWhy() +
                         ": start it again with 'agent start \"" + name + "\"'");
    }
    return end.code;
}

}  // namespace dorvo::agent
