// Jobs as the command line knows them: which one is meant, what a new one is called, and what
// becomes of one by another definition.
//
// So the same command line is the same job: a backup of the same paths in the same place, a restore
// of the same from the same backup job to the same place. Pure, but for newJobId().
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "data/jobstore.h"
#include "jobdef/restorejobdefinition.h"

namespace dorvo::agent {

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

// The value of RestoreJobDefinition::Conflict for "keep", "rename" or "overwrite", and back.
int32_t conflictOf(const std::string& text);
std::string conflictText(int32_t conflict);

// "restore docs to D:\copy": what a restore of the job is called.
std::wstring nameOfRestore(const RestoreJobDefinition& job, const std::wstring& backupName);

// The job that a restore like `wanted` becomes a run of: the one with just these settings, or else
// one that restores the same from the same backup job to the same place and is not `busy`, and so
// can take them over. Null: there is none.
const RestoreJobDefinition* findRestore(const JobList& jobs, const RestoreJobDefinition& wanted,
                                        const std::function<bool(const std::string& id)>& busy);

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
