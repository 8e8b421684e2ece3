// The last line of a run that was waited for.
#pragma once

#include <string>

#include "exitcode.h"
#include "job/activity/jobactivity.h"
#include "runwords.h"

namespace dorvo::agent {

// `name` is the job's, for what the user may do next; `walkedFiles` are the files that a backup has
// looked at.
std::string runSummary(const RunWords& words, const std::string& name, ExitCode outcome,
                       const JobActivity& record, uint32_t walkedFiles);

}  // namespace dorvo::agent
