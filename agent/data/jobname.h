// The names that users give to jobs.
#pragma once

#include <string>

#include "data/jobstore.h"

namespace dorvo::agent {

constexpr size_t longestJobName = 255;  // characters of UTF-16

// Throws AgentError (wrong usage) for what no new job may be called: blanks only, control
// characters, too long, a job's id, another job's name.
void requireNewName(const JobList& jobs, const std::wstring& name);

// What a job of that name becomes by another definition, a sentence each: paths that come and go,
// the rule for extensions, compression, the place of its backups, the schedule. Empty when they say
// the same.
std::vector<std::string> changesOf(const BackupJobDefinition& known,
                                   const BackupJobDefinition& changed);

}  // namespace dorvo::agent
