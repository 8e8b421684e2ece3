// The commands that show the jobs of this machine and what they do: agent jobs, show, watch. They
// change nothing.
#include "cli/commands.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "control/remoteengine.h"
#include "data/jobstore.h"
#include "data/jobview.h"
#include "data/runrecord.h"
#include "run/runfollow.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/failuretext.h"
#include "text/format.h"
#include "text/interrupt.h"

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

// agent jobs: the jobs of this machine and their states.
class JobsCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    bool json_ = false;
};

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

// agent show JOB: a job's definition, state and last runs with what failed in them.
class ShowCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string job_;
    unsigned runs_ = 5;
    bool json_ = false;
};

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

constexpr DWORD lookMs = 500;

// The resident agent, for what it announces; null where none runs or this user may not ask it.
std::unique_ptr<Engine> residentIfAny() {
    try {
        return RemoteEngine::connect();
    } catch (const AgentError&) {
        return nullptr;
    }
}

// Another terminal whose lines begin with a name, for the lines of several jobs side by side. It
// redraws nothing.
class PrefixTerminal : public Terminal {
public:
    // The terminal is borrowed.
    PrefixTerminal(Terminal& terminal, std::string prefix)
        : terminal_(terminal), prefix_(std::move(prefix)) {}

    void out(std::string_view text) override { terminal_.out(prefix_ + std::string(text)); }
    void warn(std::string_view text) override { terminal_.warn(prefix_ + std::string(text)); }
    void error(std::string_view text) override { terminal_.error(prefix_ + std::string(text)); }
    bool live() const override { return false; }
    size_t width() const override { return terminal_.width(); }
    void status(std::string_view) override {}
    bool readSecret(std::string_view prompt, std::string& secret) override {
        return terminal_.readSecret(prompt, secret);
    }
    bool readLine(std::string& line) override { return terminal_.readLine(line); }

private:
    Terminal& terminal_;
    const std::string prefix_;
};

// A job with the terminal that its lines go to.
struct WatchedLine {
    WatchedLine(std::string folder, std::unique_ptr<JobDefinition> job, Terminal& terminal,
                bool json)
        : id(std::move(folder)),
          named(terminal, json ? std::string() : toUtf8(job->name()) + ": "),
          watched(std::move(job), named, json) {}

    std::string id;  // the name of the job's directory
    PrefixTerminal named;
    WatchedJob watched;
};

using WatchedLines = std::vector<std::unique_ptr<WatchedLine>>;

// Takes in the jobs that have come, and lets those go that are gone.
void renew(WatchedLines& lines, Terminal& terminal, bool json) {
    std::vector<std::string> ids = jobIds();
    std::erase_if(lines, [&](const auto& line) {
        const bool gone = std::erase(ids, line->id) == 0;
        return gone && !line->watched.following();
    });
    for (const std::string& id : ids) {
        if (auto job = loadJob(id)) {
            lines.push_back(std::make_unique<WatchedLine>(id, std::move(job), terminal, json));
        }
    }
}

// agent watch [JOB]: follows the run of a job that is under way, or the next one, until its end; or
// the runs of all jobs until Ctrl+C. Changes nothing: reads the records, whoever runs the jobs.
class WatchCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    int watchJob(Terminal& terminal) const;
    int watchAll(Terminal& terminal) const;

    std::string job_;
    bool json_ = false;
};

CLI::App* WatchCommand::describe(CLI::App& parent) {
    CLI::App* const watch =
        parent.add_subcommand("watch", "Follow the run of a job, or those of all jobs");
    watch->add_option("JOB", job_, "The job's name or id; without, all until Ctrl+C");
    watch->add_flag("--json", json_, "One JSON object a line");
    watch->footer(
        "With JOB, ends with the run under way or, when there is none, with the next one. Ctrl+C "
        "leaves the run as it is.\nExample:\n  agent watch docs");
    return watch;
}

int WatchCommand::run(Terminal& terminal) {
    return job_.empty() ? watchAll(terminal) : watchJob(terminal);
}

int WatchCommand::watchJob(Terminal& terminal) const {
    std::unique_ptr<JobDefinition> job = findJob(loadJobs(), job_).clone();
    const std::string id = job->id();
    const auto resident = residentIfAny();
    RunEvents events(resident.get());
    const Interrupt interrupt;
    WatchedJob watched(std::move(job), terminal, json_);
    bool said = json_;
    while (!watched.look(events, GetTickCount64())) {
        const std::string name = toUtf8(watched.job().name());
        if (!watched.following()) {
            if (events.removed(id) || !hasJob(id)) {
                throw AgentError("The job '" + name + "' has been removed", exitStopped);
            }
            if (events.ended()) {
                throw AgentError("The resident agent has ended before the job '" + name + "' ran",
                                 exitStopped);
            }
            if (!said) {
                terminal.out("Waiting for the next run of job '" + name + "'.");
            }
            said = true;
        }
        if (!events.wait(interrupt.event(), lookMs)) {
            terminal.status({});
            return exitStopped;
        }
    }
    if (!watched.end().lost.empty()) {
        throw AgentError(watched.end().lost, watched.end().code);
    }
    return watched.end().code;
}

int WatchCommand::watchAll(Terminal& terminal) const {
    const auto resident = residentIfAny();
    auto events = std::make_unique<RunEvents>(resident.get());
    const Interrupt interrupt;
    if (!json_) {
        terminal.out(resident ? std::string("Watching the runs of all jobs until Ctrl+C.")
                              : "Watching the runs of all jobs until Ctrl+C. No resident agent "
                                "runs: " +
                                    std::string(residentHint) + ".");
    }
    WatchedLines lines;
    do {
        renew(lines, terminal, json_);
        // Asked before the looks: each run that is followed is then over for its follower too.
        const bool ended = events->ended();
        for (const auto& line : lines) {
            if (line->watched.look(*events, GetTickCount64()) &&
                !line->watched.end().lost.empty()) {
                terminal.error("agent: " + line->watched.end().lost + ".");
            }
        }
        if (ended) {
            events = std::make_unique<RunEvents>(nullptr);
        }
    } while (events->wait(interrupt.event(), lookMs));
    return exitDone;
}

}  // namespace

std::unique_ptr<Command> jobsCommand() {
    return std::make_unique<JobsCommand>();
}

std::unique_ptr<Command> showCommand() {
    return std::make_unique<ShowCommand>();
}

std::unique_ptr<Command> watchCommand() {
    return std::make_unique<WatchCommand>();
}

}  // namespace dorvo::agent
