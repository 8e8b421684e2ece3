#include "runcommand.h"

#include "agenterror.h"
#include "base/text.h"
#include "engine/modulehost.h"
#include "jobstore.h"
#include "runoutcome.h"
#include "users.h"

namespace dorvo::agent {
namespace {

void requireUnfinishedRun(const JobDefinition& job) {
    JobActivity record{};
    if (JobActivityHandle::read(job.id().c_str(), record) && unfinished(record)) {
        return;
    }
    const std::string name = toUtf8(job.name());
    throw AgentError("The job '" + name + "' has no unfinished run (its state is " +
                     jobStateToString(record.state) + "): start a new one with 'agent start \"" +
                     name + "\"'");
}

}  // namespace

CLI::App* RunCommand::describe(CLI::App& parent) {
    const bool fresh = start_ == RunStart::fresh;
    CLI::App* const command =
        fresh ? parent.add_subcommand("start", "Run a job and wait for its end")
              : parent.add_subcommand("resume", "Go on with a paused or interrupted run");
    command->add_option("JOB", job_, "The job's name or id")->required();
    command->footer(fresh ? "A paused run is gone on with.\nExample:\n  agent start docs"
                          : "Example:\n  agent resume docs");
    return command;
}

int RunCommand::run(Terminal& terminal) {
    ModuleHost host;
    const JobList jobs = loadJobs();
    const JobDefinition& job = findJob(jobs, job_);
    if (job.storage() == StorageKind::web) {
        requireServer();
        chooseUser(job.user());
    }
    if (start_ == RunStart::resumed) {
        requireUnfinishedRun(job);
    }
    host.open(job.id());
    return runJob(terminal, job, start_);
}

}  // namespace dorvo::agent
