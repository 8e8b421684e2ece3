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

// The job whose id, or else whose name, is the text, both without regard to case. Throws AgentError
// when there is none, when its definition cannot be read or when several jobs have the name.
const JobDefinition& findJob(const JobList& jobs, const std::string& idOrName);

// The same of backup jobs: throws for a restore job too, which has no backups of its own.
const JobDefinition& findBackupJob(const JobList& jobs, const std::string& idOrName);

// The same paths in whatever order and case.
bool samePaths(const std::vector<std::wstring>& a, const std::vector<std::wstring>& b);

// The backup job of the user with that name; null when there is none.
const BackupJobDefinition* findBackup(const JobList& jobs, const std::string& user,
                                      const std::wstring& name);

// The backup job of the user with exactly those sources, in whatever order and case, that keeps its
// backups in that folder (empty: at the server); null when there is none.
const BackupJobDefinition* findBackup(const JobList& jobs, const std::string& user,
                                      const std::vector<std::wstring>& sources,
                                      const std::wstring& location);

// `wanted`, or the first of "wanted (2)", "wanted (3)"... that no job has.
std::wstring freeName(const JobList& jobs, const std::wstring& wanted);

// Throws AgentError when the system gives none.
std::string newJobId();

// Whether the job has a run to go on with.
bool hasUnfinishedRun(const std::string& id);

}  // namespace dorvo::agent
