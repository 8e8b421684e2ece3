#include "source/volumefile.h"

#include <windows.h>

#include "base/paths.h"

namespace dorvo {

bool volumeDirectory(const char* jobId, std::wstring& path) {
    if (jobId == nullptr || *jobId == '\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (!jobDirectory(jobId, path)) {
        return false;
    }
    path += L"\\act\\vol";
    return true;
}

}  // namespace dorvo
