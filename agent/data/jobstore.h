// The jobs of this machine as the data directory describes them.
//
// Reads definitions only and changes nothing: it does not open the job manager.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "jobdef/backupjobdefinition.h"

namespace dorvo::agent {

using JobList = std::vector<std::unique_ptr<JobDefinition>>;

// A job directory whose definition is there, but cannot be taken: no job of it runs.
struct UnreadJob {
    std::string id;   // the directory's name
    std::string why;  // "its definition is of a later version; ..."
};

// Every readable definition, by name and then by id; the others go to `unread` where it is given.
JobList loadJobs(std::vector<UnreadJob>* unread = nullptr);

// The names of the job directories (throws AgentError when this user may not look), and what one
// holds: null for no readable definition, or for that of a job with another id.
std::vector<std::string> jobIds();
std::unique_ptr<JobDefinition> loadJob(const std::string& id);
// The one of that id, without regard to case.
std::optional<UnreadJob> findUnread(const std::string& id);
// Whether there is a definition of the job.
bool hasJob(const std::string& id);
// The same, or what is left of one.
bool hasJobDirectory(const std::string& id);

// The job whose id, or else whose name, is the text, both without regard to case. Throws AgentError
// when there is none, when its definition cannot be read or when several jobs have the name.
const JobDefinition& findJob(const JobList& jobs, const std::string& idOrName);

// The same of backup jobs: throws for a restore job too, which has no backups of its own.
const JobDefinition& findBackupJob(const JobList& jobs, const std::string& idOrName);

}  // namespace dorvo::agent
