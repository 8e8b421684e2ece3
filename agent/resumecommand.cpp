#include "resumecommand.h"

#include "agenterror.h"
#include "base/text.h"
#include "jobrun.h"
#include "jobstore.h"
#include "modulehost.h"
#include "runoutcome.h"
#include "users.h"

namespace dorvo::agent {

CLI::App* ResumeCommand::describe(CLI::App& parent) {
    CLI::App* const resume =
        parent.add_subcommand("resume", "Go on with a paused or interrupted run");
    resume->add_option("JOB", job_, "The job's name or id")->required();
    resume->footer("Example:\n  agent resume docs");
    return resume;
}

int ResumeCommand::run(Terminal& terminal) {
    requireServer();
    ModuleHost host;
    const JobList jobs = loadJobs();
    const JobDefinition& job = findJob(jobs, job_);
    chooseUser(job.user());
    JobActivity record{};
    if (!JobActivityHandle::read(job.id().c_str(), record) || !unfinished(record)) {
        const std::string name = toUtf8(job.name());
        throw AgentError("The job '" + name + "' has no unfinished run (its state is " +
                         jobStateToString(record.state) +
                         "): start a new one with 'agent start \"" + name + "\"'");
    }
    host.open(job.id());
    return runJob(terminal, job, RunStart::resumed);
}

}  // namespace dorvo::agent
