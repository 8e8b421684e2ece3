// The commands that tell a job something, and wait until it has done it.
#include "cli/commands.h"

#include <string>

#include "base/text.h"
#include "control/openengine.h"
#include "data/jobstore.h"
#include "data/runrecord.h"
#include "data/users.h"
#include "engine/engine.h"
#include "run/jobrun.h"
#include "run/runfollow.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/interrupt.h"

namespace dorvo::agent {
namespace {

// How the help shows a verb.
struct Help {
    const char* name;
    const char* what;
    const char* more;
};

// agent VERB JOB.
class VerbCommand : public Command {
public:
    explicit VerbCommand(const Help& help) : help_(help) {}

    CLI::App* describe(CLI::App& parent) override {
        CLI::App* const command = parent.add_subcommand(help_.name, help_.what);
        command->add_option("JOB", job_, "The job's name or id")->required();
        command->footer(help_.more);
        return command;
    }

protected:
    std::string job_;

private:
    const Help help_;
};

// agent start JOB: runs a job that there is; goes on with its run when it is paused.
// agent resume JOB: goes on with a run that was paused or interrupted, and starts none.
class RunCommand : public VerbCommand {
public:
    // `start` or `resume`.
    RunCommand(JobVerb verb, const Help& help) : VerbCommand(help), verb_(verb) {}

    CLI::App* describe(CLI::App& parent) override {
        CLI::App* const command = VerbCommand::describe(parent);
        flags_.describe(*command);
        return command;
    }
    int run(Terminal& terminal) override;

private:
    JobVerb verb_;
    RunFlags flags_;
};

int RunCommand::run(Terminal& terminal) {
    const auto engine = openEngine();
    flags_.check(*engine);
    const JobList jobs = loadJobs();
    const JobDefinition& job = findJob(jobs, job_);
    if (job.storage() == StorageKind::web) {
        requireServer();
        chooseUser(job.user());
    }
    return runJob(
        *engine, terminal, job, [&] { engine->tell(verb_, job.id()); }, flags_);
}

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

// agent stop JOB: cancels a run. agent pause JOB: pauses it until 'agent resume'. Both wait until
// that is done.
class TellCommand : public VerbCommand {
public:
    // `stop` or `pause`.
    TellCommand(JobVerb verb, const Help& help) : VerbCommand(help), verb_(verb) {}

    int run(Terminal& terminal) override;

private:
    JobVerb verb_;
};

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

std::string whatStays(const JobDefinition& job) {
    if (job.type() == JobDefinition::restoreType) {
        return "What it has restored stays where it is.";
    }
    return job.storage() == StorageKind::web
               ? "Its backups stay at the server."
               : "Its backups stay in '" + toUtf8(job.location()) + "'.";
}

struct Target {
    std::string id;
    std::string name;
    std::string stays;  // a sentence on what is not removed
};

// By its id a job can be removed whose definition nobody can read.
Target targetOf(const std::string& idOrName) {
    if (const auto unread = findUnread(idOrName)) {
        return {unread->id, unread->id, "Its backups stay where they are."};
    }
    const JobList jobs = loadJobs();
    const JobDefinition& job = findJob(jobs, idOrName);
    return {job.id(), toUtf8(job.name()), whatStays(job)};
}

// agent remove JOB: stops the job and deletes it with its history. Its backups stay.
class RemoveCommand : public VerbCommand {
public:
    using VerbCommand::VerbCommand;

    int run(Terminal& terminal) override;
};

int RemoveCommand::run(Terminal& terminal) {
    const auto engine = openEngine();
    const Target job = targetOf(job_);
    RunEvents events(engine.get());
    engine->tell(JobVerb::remove, job.id);
    const Interrupt interrupt;
    if (!events.awaitRemoved(job.id, interrupt.event())) {
        throw AgentError("The job '" + job.name + "' was told to go, but not waited for",
                         exitStopped);
    }
    if (hasJobDirectory(job.id)) {
        throw AgentError(events.removed(job.id)
                             ? "The job '" + job.name +
                                   "' could not be deleted whole: " + logSaysWhy()
                             : "The agent has ended before the job '" + job.name + "' was removed");
    }
    terminal.out("The job '" + job.name + "' (" + job.id + ") is removed with its history. " +
                 job.stays);
    return exitDone;
}

}  // namespace

CommandPtr startCommand() {
    return std::make_unique<RunCommand>(
        JobVerb::start, Help{"start", "Run a job and wait for its end",
                             "A paused run is gone on with.\nExample:\n  agent start docs"});
}

CommandPtr resumeCommand() {
    return std::make_unique<RunCommand>(
        JobVerb::resume,
        Help{"resume", "Go on with a paused or interrupted run", "Example:\n  agent resume docs"});
}

CommandPtr pauseCommand() {
    return std::make_unique<TellCommand>(
        JobVerb::pause, Help{"pause", "Pause the run of a job until 'agent resume'",
                             "Example:\n  agent pause docs"});
}

CommandPtr stopCommand() {
    return std::make_unique<TellCommand>(
        JobVerb::stop, Help{"stop", "Cancel the run of a job",
                            "What a cancelled backup has sent is dropped; earlier ones stay.\n"
                            "Example:\n  agent stop docs"});
}

CommandPtr removeCommand() {
    return std::make_unique<RemoveCommand>(
        Help{"remove", "Delete a job with its history; its backups stay",
             "A run of the job is cancelled first. What its backups hold can still be restored.\n"
             "Example:\n  agent remove docs"});
}

}  // namespace dorvo::agent
