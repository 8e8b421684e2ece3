// The jobs of this machine as the data directory describes them.
//
// Reads definitions only and changes nothing: it does not open the job manager.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "jobdef/backupjobdefinition.h"

namespace dorvo::agent {

using JobList = std::vector<std::unique_ptr<JobDefinition>>;

// Every readable definition, by name and then by id.
JobList loadJobs();

// The job whose id, or else whose name, is the text, both without regard to case. Throws AgentError
// when there is none or when several jobs have the name.
const JobDefinition& findJob(const JobList& jobs, const std::string& idOrName);

// The backup job of the user with that name; null when there is none.
const BackupJobDefinition* findBackup(const JobList& jobs, const std::string& user,
                                      const std::wstring& name);

// The backup job of the user with exactly those sources, in whatever order and case; null when
// there is none.
const BackupJobDefinition* findBackup(const JobList& jobs, const std::string& user,
                                      const std::vector<std::wstring>& sources);

}  // namespace dorvo::agent
