#include "cli/watchcommand.h"

#include <algorithm>
#include <vector>

#include "base/text.h"
#include "control/remoteengine.h"
#include "data/jobstore.h"
#include "run/watchedjob.h"
#include "text/agenterror.h"
#include "text/interrupt.h"
#include "text/prefixterminal.h"
#include "text/residenthint.h"

namespace dorvo::agent {
namespace {

constexpr DWORD lookMs = 500;

// The resident agent, for what it announces; null where none runs or this user may not ask it.
std::unique_ptr<Engine> residentIfAny() {
    try {
        return RemoteEngine::connect();
    } catch (const AgentError&) {
        return nullptr;
    }
}

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

}  // namespace

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

}  // namespace dorvo::agent
