// Where a job's volume files lie.
#pragma once

#include <string>

namespace dorvo {

// <job directory>\act\vol. False, with the last error, for a null, empty or impossible id.
bool volumeDirectory(const char* jobId, std::wstring& path);

}  // namespace dorvo
