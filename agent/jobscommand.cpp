#include "jobscommand.h"

#include "base/text.h"
#include "exitcode.h"
#include "jobstore.h"
#include "jobview.h"
#include "runoutcome.h"
#include "table.h"

namespace dorvo::agent {

CLI::App* JobsCommand::describe(CLI::App& parent) {
    CLI::App* const jobs = parent.add_subcommand("jobs", "List the jobs of this machine");
    jobs->add_flag("--json", json_, "One JSON document");
    jobs->footer("Example:\n  agent jobs --json");
    return jobs;
}

int JobsCommand::run(Terminal& terminal) {
    const JobList jobs = loadJobs();
    json_spirit::Ordered_array documents;
    std::vector<std::vector<std::string>> rows;
    for (const auto& job : jobs) {
        const JobView view = viewOf(*job);
        documents.emplace_back(summaryJson(view));
        std::string state = stateText(view);
        if (view.recorded && unfinished(view.record)) {
            state += " " + std::to_string(view.record.progress()) + "%";
        }
        rows.push_back({toUtf8(job->name()), state, job->user(), job->id()});
    }
    if (json_) {
        terminal.out(json_spirit::write_formatted(json_spirit::Ordered_value(documents)));
    } else if (rows.empty()) {
        terminal.out("There are no jobs yet: 'agent backup PATH' makes one.");
    } else {
        terminal.out(tableText({"NAME", "STATE", "USER", "ID"}, rows));
    }
    return exitDone;
}

}  // namespace dorvo::agent
