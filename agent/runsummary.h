// The last line of a run that was waited for.
#pragma once

#include <string>

#include "exitcode.h"
#include "job/activity/jobactivity.h"

namespace dorvo::agent {

// `verb` is what ran ("Backup"), `name` the job's, for what the user may do next; `walkedFiles` are
// the files that the run has looked at.
std::string runSummary(const std::string& verb, const std::string& name, ExitCode outcome,
                       const JobActivity& record, uint32_t walkedFiles);

}  // namespace dorvo::agent
