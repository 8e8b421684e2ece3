#include "cli/instancequery.h"

#include <windows.h>

#include <algorithm>

#include "base/machine_name.h"
#include "base/text.h"
#include "base/uuid.h"
#include "storage/storedinstance.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

constexpr const char* completed = "completed";

bool beginsWith(const std::string& text, const std::string& beginning) {
    return text.size() >= beginning.size() &&
           equalsIgnoreCase(std::string_view(text).substr(0, beginning.size()), beginning);
}

bool sameJob(const StoredInstance& a, const StoredInstance& b) {
    return a.machine == b.machine && equalsIgnoreCase(a.jobDefinitionId, b.jobDefinitionId);
}

const StoredInstance& latest(const std::vector<StoredInstance>& runs,
                             const std::string& thisMachine, const std::string& listing) {
    std::vector<const StoredInstance*> candidates;
    for (const StoredInstance& run : runs) {
        if (run.state == completed) {
            candidates.push_back(&run);
        }
    }
    if (candidates.empty()) {
        throw AgentError("There is no completed run that 'latest' could mean: '" + listing +
                         "' shows those there are");
    }
    const auto ours = [&](const StoredInstance* run) { return run->machine == thisMachine; };
    if (std::any_of(candidates.begin(), candidates.end(), ours)) {
        std::erase_if(candidates, std::not_fn(ours));
    }
    for (const StoredInstance* run : candidates) {
        if (!sameJob(*run, *candidates.back())) {
            throw AgentError(
                "Several jobs have runs: choose one with --job, as '" + listing + "' shows them",
                exitUsage);
        }
    }
    // An older run than the user means must not come back without a word.
    const StoredInstance& newest = *candidates.back();
    for (const StoredInstance& run : runs) {
        if (run.state == damagedInstance && sameJob(run, newest) && run.endTime >= newest.endTime) {
            throw AgentError("The run " + run.jobInstanceId + ", written at " + run.endTime +
                             ", is damaged and may be the latest: give the id of the one before, " +
                             newest.jobInstanceId + ", to take that");
        }
    }
    return newest;
}

const StoredInstance& byBeginning(const std::vector<StoredInstance>& runs, const std::string& asked,
                                  const std::string& listing) {
    const auto whole = std::find_if(runs.begin(), runs.end(), [&](const StoredInstance& run) {
        return equalsIgnoreCase(run.jobInstanceId, asked);
    });
    if (whole != runs.end()) {
        return *whole;
    }
    const StoredInstance* found = nullptr;
    for (const StoredInstance& run : runs) {
        if (!beginsWith(run.jobInstanceId, asked)) {
            continue;
        }
        if (found != nullptr) {
            throw AgentError("Several runs have an id that begins with '" + asked +
                             "': give more of it");
        }
        found = &run;
    }
    if (found == nullptr) {
        throw AgentError("There is no run '" + asked + "': '" + listing +
                         "' shows those there are");
    }
    return *found;
}

}  // namespace

const StoredInstance& chooseInstance(const std::vector<StoredInstance>& runs,
                                     const std::string& asked, const std::string& thisMachine,
                                     const std::string& listing) {
    if (equalsIgnoreCase(asked, "latest")) {
        return latest(runs, thisMachine, listing);
    }
    const StoredInstance& run = byBeginning(runs, asked, listing);
    if (run.state != completed) {
        throw AgentError("The run " + run.jobInstanceId + " is not complete: its state is '" +
                         run.state + "'");
    }
    return run;
}

std::string backupJobId(const JobList& jobs, const std::string& asked) {
    GUID id;
    return asked.empty() || uuidFromText(asked, id) ? asked : findBackupJob(jobs, asked).id();
}

void InstanceQuery::describe(CLI::App& command) {
    command
        .add_option("INSTANCE", instance,
                    "The run's id or the beginning of it, or 'latest' for the last completed one")
        ->required();
    command.add_option("--job", job, "Only runs of this backup job: its name or id");
    command.add_option("--machine", machine, "Only runs of this machine");
    command.add_option("--local", local, "The folder of the backups, in place of the server")
        ->type_name("DIR");
    command.add_option("--user", user, "The account, when several have logged in");
}

StoredInstance InstanceQuery::choose(const BackupPlace& place) const {
    std::string here;
    machineName(here);  // without it no machine's runs come first
    return chooseInstance(place.runs(machine, backupJobId(loadJobs(), job)), instance, here,
                          place.listing());
}

}  // namespace dorvo::agent
