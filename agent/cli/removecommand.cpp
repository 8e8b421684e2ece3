#include "cli/removecommand.h"

#include "base/text.h"
#include "control/openengine.h"
#include "data/jobstore.h"
#include "run/runevents.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/interrupt.h"

namespace dorvo::agent {
namespace {

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

}  // namespace

CLI::App* RemoveCommand::describe(CLI::App& parent) {
    CLI::App* const remove =
        parent.add_subcommand("remove", "Delete a job with its history; its backups stay");
    remove->add_option("JOB", job_, "The job's name or id")->required();
    remove->footer(
        "A run of the job is cancelled first. What its backups hold can still be restored.\n"
        "Example:\n  agent remove docs");
    return remove;
}

int RemoveCommand::run(Terminal& terminal) {
    const auto engine = openEngine();
    const Target job = targetOf(job_);
    RunEvents events(engine.get());
    engine->tell(JobVerb::remove, job.id);
    const Interrupt interrupt;
    while (!events.removed(job.id) && !events.ended()) {
        if (!events.wait(interrupt.event())) {
            throw AgentError("The job '" + job.name + "' was told to go, but not waited for",
                             exitStopped);
        }
    }
    if (hasJob(job.id)) {
        throw AgentError(events.removed(job.id)
                             ? "The job '" + job.name +
                                   "' could not be deleted whole: " + logSaysWhy()
                             : "The agent has ended before the job '" + job.name + "' was removed");
    }
    terminal.out("The job '" + job.name + "' (" + job.id + ") is removed with its history. " +
                 job.stays);
    return exitDone;
}

}  // namespace dorvo::agent
