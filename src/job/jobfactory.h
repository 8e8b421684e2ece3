// Makes the job that a definition asks for.
#pragma once

#include <jobdef/jobdefinition.h>

#include <memory>

#include "job/job.h"

namespace dorvo {

// Takes the definition only when it makes a job; null when its type is not known. May throw what
// Job's constructor throws.
using JobMaker = std::unique_ptr<Job> (*)(std::unique_ptr<JobDefinition>& definition);

// The maker that the job manager uses.
std::unique_ptr<Job> createJob(std::unique_ptr<JobDefinition>& definition);

// Puts another maker in its place and returns the former; null brings back the module's own.
// Before the job manager is opened.
JobMaker setJobMaker(JobMaker maker);

}  // namespace dorvo
