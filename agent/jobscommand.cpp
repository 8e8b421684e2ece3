#include "jobscommand.h"

#include "base/text.h"
#include "exitcode.h"
#include "jobstore.h"
#include "jobview.h"
#include "residenthint.h"
#include "runoutcome.h"
#include "table.h"
#include "timetext.h"

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
    std::vector<std::string> warnings;
    bool unattended = false;  // a schedule that nobody keeps
    for (const auto& job : jobs) {
        const JobView view = viewOf(*job);
        documents.emplace_back(summaryJson(view));
        std::string state = stateText(view);
        if (view.recorded && unfinished(view.record)) {
            state += " " + std::to_string(view.record.progress()) + "%";
        }
        rows.push_back({toUtf8(job->name()), state, localTimeText(view.lastCompleted),
                        localTimeText(view.nextRun), job->user(), job->id()});
        if (const std::string waits = waitText(view); !waits.empty()) {
            warnings.push_back(waits);
        }
        if (view.overdue) {
            warnings.push_back(overdueText(view));
        }
        unattended = unattended || (view.nextRun != 0 && !view.live);
    }
    if (json_) {
        terminal.out(json_spirit::write_formatted(json_spirit::Ordered_value(documents)));
    } else if (rows.empty()) {
        terminal.out("There are no jobs yet: 'agent backup PATH' makes one.");
    } else {
        terminal.out(
            tableText({"NAME", "STATE", "LAST COMPLETED", "NEXT RUN", "USER", "ID"}, rows));
        if (unattended) {
            warnings.push_back(
                std::string("Scheduled jobs do not start, for no resident agent runs: ") +
                residentHint + ".");
        }
        for (const std::string& warning : warnings) {
            terminal.warn("Warning: " + warning);
        }
    }
    return exitDone;
}

}  // namespace dorvo::agent
