// The job directories below the job root, and the definition in each.
#pragma once

#include <windows.h>

#include <jobdef/jobdefinition.h>

#include <memory>
#include <string>
#include <vector>

#include "base/api.h"

namespace dorvo {

// The paths of all folders below the job root.
DORVO_JOB_API std::vector<std::wstring> jobDirectories();

// The directory's definition, waited for as long as another program holds it for a moment. Null
// with the last error.
DORVO_JOB_API std::unique_ptr<JobDefinition> readDefinition(const std::wstring& directory);

// Whether that error means that there is no definition, or that the file is none. Any other, of a
// disk or of somebody who has the file open, says nothing about what is in it.
bool isNoDefinition(DWORD error);

// Puts the definition in the place of the one in its job's directory. False, logged, with the last
// error.
bool saveDefinition(const JobDefinition& definition);

}  // namespace dorvo
