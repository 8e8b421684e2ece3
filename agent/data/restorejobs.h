// Restore jobs as the command line knows them: their names, their rules, which one is meant. Pure.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "data/jobstore.h"
#include "jobdef/restorejobdefinition.h"

namespace dorvo::agent {

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

}  // namespace dorvo::agent
