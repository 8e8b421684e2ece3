#include "data/dataaccess.h"

#include <windows.h>

#include "base/handle.h"
#include "base/paths.h"
#include "text/agenterror.h"

namespace dorvo::agent {

void requireDataAccess() {
    std::wstring directory;
    if (!dataDirectory(directory)) {
        return;
    }
    WIN32_FIND_DATAW entry;
    const FindHandle search(FindFirstFileW(longPath(directory + L"\\*").c_str(), &entry));
    if (!search && GetLastError() == ERROR_ACCESS_DENIED) {
        throw AgentError(
            "The agent's data may be read by administrators only: run the command again in a "
            "console that was opened as administrator");
    }
}

}  // namespace dorvo::agent
