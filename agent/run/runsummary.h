// The last line of a run that was waited for. Pure.
#pragma once

#include <string>

#include "data/runresult.h"

namespace dorvo::agent {

std::string runSummary(const JobDefinition& job, const RunResult& result);

}  // namespace dorvo::agent
