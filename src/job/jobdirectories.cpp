#include "job/jobdirectories.h"

#include <jobdef/jobdefinitionfactory.h>

#include "base/handle.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/sharing_retry.h"

namespace dorvo {

std::vector<std::wstring> jobDirectories() {
    std::vector<std::wstring> directories;
    std::wstring root;
    if (!jobRoot(root)) {
        return directories;
    }
    WIN32_FIND_DATAW entry;
    const FindHandle find(FindFirstFileW(longPath(root + L"\\*").c_str(), &entry));
    if (!find) {
        return directories;
    }
    do {
        const std::wstring name = entry.cFileName;
        if (name != L"." && name != L".." &&
            (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            directories.push_back(root + L"\\" + name);
        }
    } while (FindNextFileW(find.get(), &entry) != 0);
    return directories;
}

std::unique_ptr<JobDefinition> readDefinition(const std::wstring& directory) {
    std::unique_ptr<JobDefinition> definition;
    SharingRetry retry;
    do {
        definition = JobDefinitionFactory::create(directory + L"\\def");
    } while (!definition && retry.again());
    return definition;
}

bool isNoDefinition(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
           error == ERROR_INVALID_DATA;
}

bool saveDefinition(const JobDefinition& definition) {
    std::wstring directory;
    jobDirectory(definition.id(), directory);
    const std::wstring path = directory.empty() ? std::wstring() : directory + L"\\def";
    if (definition.save(path)) {
        return true;
    }
    return logFailed("Failed to save the definition of job {%s}, error-code = %d, %m.\n",
                     definition.id(), GetLastError());
}

}  // namespace dorvo
