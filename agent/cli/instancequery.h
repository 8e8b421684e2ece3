// The arguments by which a command names one run of a backup job, and which run they stand for.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

#include "data/backupplace.h"
#include "data/jobstore.h"
#include "storage/storedinstance.h"

namespace dorvo::agent {

// The completed run that `asked` names: an id, the beginning of only one, or "latest", which needs
// the runs to be those of one job; this machine's come before those of others. A damaged run of
// that job that may be newer is a refusal. `runs` are the oldest of a job first. `listing` is the
// command that shows them. Throws AgentError. Pure.
const StoredInstance& chooseInstance(const std::vector<StoredInstance>& runs,
                                     const std::string& asked, const std::string& thisMachine,
                                     const std::string& listing);

// The id of the backup job that `asked` names: a job of this machine by name or id, or any id, as
// listings show those of other machines. Throws AgentError; empty for an empty text.
std::string backupJobId(const JobList& jobs, const std::string& asked);

struct InstanceQuery {
    std::string instance;
    std::string job;
    std::string machine;
    std::string local;
    std::string user;

    // Adds INSTANCE, and the options.
    void describe(CLI::App& command);

    // The completed run that is meant. Throws AgentError.
    StoredInstance choose(const BackupPlace& place) const;
};

}  // namespace dorvo::agent
