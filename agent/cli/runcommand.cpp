#include "cli/runcommand.h"

#include "control/openengine.h"
#include "data/jobstore.h"
#include "data/users.h"
#include "run/jobrun.h"
#include "text/agenterror.h"

namespace dorvo::agent {

CLI::App* RunCommand::describe(CLI::App& parent) {
    const bool fresh = verb_ == JobVerb::start;
    CLI::App* const command =
        fresh ? parent.add_subcommand("start", "Run a job and wait for its end")
              : parent.add_subcommand("resume", "Go on with a paused or interrupted run");
    command->add_option("JOB", job_, "The job's name or id")->required();
    flags_.describe(*command);
    command->footer(fresh ? "A paused run is gone on with.\nExample:\n  agent start docs"
                          : "Example:\n  agent resume docs");
    return command;
}

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

}  // namespace dorvo::agent
