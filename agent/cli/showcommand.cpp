#include "cli/showcommand.h"

#include "data/jobstore.h"
#include "data/jobview.h"
#include "text/exitcode.h"

namespace dorvo::agent {

CLI::App* ShowCommand::describe(CLI::App& parent) {
    CLI::App* const show = parent.add_subcommand("show", "Show one job and its last runs");
    show->add_option("JOB", job_, "The job's name or id")->required();
    show->add_option("--runs", runs_, "How many of the last runs")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    show->add_flag("--json", json_, "One JSON document");
    show->footer("Example:\n  agent show docs");
    return show;
}

int ShowCommand::run(Terminal& terminal) {
    const JobList jobs = loadJobs();
    const JobDefinition& job = findJob(jobs, job_);
    const JobView view = viewOf(job);
    const std::vector<PastRun> runs = loadRuns(job.id(), runs_);
    terminal.out(
        json_ ? json_spirit::write_formatted(json_spirit::Ordered_value(detailJson(view, runs)))
              : detailText(view, runs));
    if (view.overdue && !json_) {
        terminal.warn("Warning: " + overdueText(view));
    }
    return exitDone;
}

}  // namespace dorvo::agent
