#include "startcommand.h"

#include "jobrun.h"
#include "jobstore.h"
#include "modulehost.h"
#include "users.h"

namespace dorvo::agent {

CLI::App* StartCommand::describe(CLI::App& parent) {
    CLI::App* const start = parent.add_subcommand("start", "Run a job and wait for its end");
    start->add_option("JOB", job_, "The job's name or id")->required();
    start->footer("A paused run is gone on with.\nExample:\n  agent start docs");
    return start;
}

int StartCommand::run(Terminal& terminal) {
    requireServer();
    ModuleHost host;
    const JobList jobs = loadJobs();
    const JobDefinition& job = findJob(jobs, job_);
    chooseUser(job.user());
    host.open(job.id());
    return runJob(terminal, job, RunStart::fresh);
}

}  // namespace dorvo::agent
