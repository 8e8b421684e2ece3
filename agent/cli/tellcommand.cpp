#include "cli/tellcommand.h"

#include "base/text.h"
#include "control/openengine.h"
#include "data/jobstore.h"
#include "data/liverecord.h"
#include "data/runoutcome.h"
#include "run/runevents.h"
#include "text/agenterror.h"
#include "text/interrupt.h"

namespace dorvo::agent {
namespace {

std::string outcomeText(const JobDefinition& job, const JobActivity& record) {
    const std::string name = toUtf8(job.name());
    switch (static_cast<JobState>(record.state)) {
        case JobState::cancelled: return "The run of job '" + name + "' is cancelled.";
        case JobState::paused:
            return "The run of job '" + name + "' is paused at " +
                   std::to_string(record.progress()) + "%: go on with 'agent resume \"" + name +
                   "\"'.";
        default:
            return "The run of job '" + name + "' has ended by itself: its state is " +
                   jobStateToString(record.state) + ".";
    }
}

// What the job had been told is done, or its run was quicker.
bool settled(JobVerb verb, const JobActivity& record) {
    return verb == JobVerb::pause ? !runsOrWaits(record)
                                  : !runsOrWaits(record) && !unfinished(record);
}

std::string lostText(const std::string& name) {
    return "The agent has ended before the job '" + name +
           "' did what it was told: 'agent show \"" + name + "\"' shows its state";
}

}  // namespace

CLI::App* TellCommand::describe(CLI::App& parent) {
    const bool stops = verb_ == JobVerb::stop;
    CLI::App* const command =
        stops ? parent.add_subcommand("stop", "Cancel the run of a job")
              : parent.add_subcommand("pause", "Pause the run of a job until 'agent resume'");
    command->add_option("JOB", job_, "The job's name or id")->required();
    command->footer(stops ? "What a cancelled backup has sent is dropped; earlier ones stay.\n"
                            "Example:\n  agent stop docs"
                          : "Example:\n  agent pause docs");
    return command;
}

int TellCommand::run(Terminal& terminal) {
    const auto engine = openEngine();
    const JobList jobs = loadJobs();
    const JobDefinition& job = findJob(jobs, job_);
    const std::string name = toUtf8(job.name());
    JobActivity record{};
    lookAtRecord(job.id(), record);
    if (static_cast<JobState>(record.state) == JobState::idle) {
        // The module would park it, and start it at its next due time all the same.
        throw AgentError("The job '" + name + "' has no run: it has never run");
    }
    RunEvents events(engine.get());
    engine->tell(verb_, job.id());
    const Interrupt interrupt;
    for (;;) {
        const bool ended = events.ended();
        if (events.removed(job.id())) {
            throw AgentError("The job '" + name + "' has been removed meanwhile");
        }
        lookAtRecord(job.id(), record);
        if (settled(verb_, record)) {
            break;
        }
        if (ended) {
            throw AgentError(lostText(name));
        }
        if (!events.wait(interrupt.event())) {
            throw AgentError("The job '" + name + "' was told, but not waited for", exitStopped);
        }
    }
    terminal.out(outcomeText(job, record));
    return exitDone;
}

}  // namespace dorvo::agent
