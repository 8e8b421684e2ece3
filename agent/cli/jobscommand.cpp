#include "cli/jobscommand.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"
#include "data/jobstore.h"
#include "data/jobview.h"
#include "data/runoutcome.h"
#include "text/agentlog.h"
#include "text/exitcode.h"
#include "text/printable.h"
#include "text/residenthint.h"
#include "text/table.h"
#include "text/timetext.h"

namespace dorvo::agent {
namespace {

std::vector<std::string> rowOf(const JobView& view) {
    std::string state = stateText(view);
    if (view.recorded && unfinished(view.record)) {
        state += " " + std::to_string(view.record.progress()) + "%";
    }
    return {toUtf8(view.job->name()),
            state,
            localTimeText(view.lastCompleted),
            localTimeText(view.nextRun),
            view.job->user(),
            view.job->id()};
}

std::vector<std::string> warningsOf(const std::vector<JobView>& views) {
    std::vector<std::string> warnings;
    // A process that has any job has them all, but for those that it could not load.
    const bool attended =
        std::any_of(views.begin(), views.end(), [](const JobView& view) { return view.live; });
    bool unattended = false;  // a schedule that nobody keeps
    for (const JobView& view : views) {
        if (attended && !view.live) {
            warnings.push_back("Job '" + printable(toUtf8(view.job->name())) +
                               "' does not run: the agent could not load it, and " + logSaysWhy() +
                               ". It tries again when it starts anew.");
        }
        if (const std::string waits = waitText(view); !waits.empty()) {
            warnings.push_back(waits);
        }
        if (view.overdue) {
            warnings.push_back(overdueText(view));
        }
        unattended = unattended || (view.nextRun != 0 && !attended);
    }
    if (unattended) {
        warnings.push_back(
            std::string("Scheduled jobs do not start, for no resident agent runs: ") +
            residentHint + ".");
    }
    return warnings;
}

}  // namespace

CLI::App* JobsCommand::describe(CLI::App& parent) {
    CLI::App* const jobs = parent.add_subcommand("jobs", "List the jobs of this machine");
    jobs->add_flag("--json", json_, "One JSON document");
    jobs->footer("Example:\n  agent jobs --json");
    return jobs;
}

int JobsCommand::run(Terminal& terminal) {
    std::vector<UnreadJob> unread;
    const JobList jobs = loadJobs(&unread);
    std::vector<JobView> views;
    for (const auto& job : jobs) {
        views.push_back(viewOf(*job));
    }
    if (json_) {
        json_spirit::Ordered_array documents;
        std::transform(views.begin(), views.end(), std::back_inserter(documents), &summaryJson);
        std::transform(unread.begin(), unread.end(), std::back_inserter(documents), &unreadJson);
        terminal.out(json_spirit::write_formatted(json_spirit::Ordered_value(documents)));
    } else if (views.empty() && unread.empty()) {
        terminal.out("There are no jobs yet: 'agent backup PATH' makes one.");
    } else {
        std::vector<std::vector<std::string>> rows;
        std::transform(views.begin(), views.end(), std::back_inserter(rows), &rowOf);
        for (const UnreadJob& job : unread) {
            rows.push_back({"", unreadState, "", "", "", job.id});
        }
        terminal.out(
            tableText({"NAME", "STATE", "LAST COMPLETED", "NEXT RUN", "USER", "ID"}, rows));
        for (const std::string& warning : warningsOf(views)) {
            terminal.warn("Warning: " + warning);
        }
        for (const UnreadJob& job : unread) {
            terminal.warn("Warning: " + unreadText(job));
        }
    }
    return exitDone;
}

}  // namespace dorvo::agent
