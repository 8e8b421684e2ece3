#include "job/pendingdrops.h"

#include <windows.h>

#include <utility>
#include <vector>

#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "job/transferfailure.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

// The names in a folder that are those of instances.
std::vector<std::string> instancesIn(const std::wstring& folder) {
    std::vector<std::string> names;
    WIN32_FIND_DATAW entry;
    const FindHandle find(FindFirstFileW((longPath(folder) + L"\\*").c_str(), &entry));
    for (bool more = static_cast<bool>(find); more; more = FindNextFileW(find.get(), &entry) != 0) {
        GUID id{};
        if (std::string name = toUtf8(entry.cFileName); uuidFromText(name, id)) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

bool read(const std::wstring& path, std::string& text) {
    FileHandle file = openStoreForReading(path, FILE_SHARE_READ);
    return file && readStore(std::move(file), text);
}

}  // namespace

std::wstring PendingDrops::folder() const {
    std::wstring path;
    return jobDirectory(jobId_, path) ? path + L"\\drops" : std::wstring();
}

void PendingDrops::failed(const PendingDrop& drop, unsigned long error) const {
    if (!isRefusal(error)) {
        add(drop);
    }
}

void PendingDrops::add(const PendingDrop& drop) const {
    const LastErrorGuard keep;
    const std::wstring path = folder();
    if (drop.instanceId.empty() || path.empty()) {
        return;
    }
    if (!createDirectories(path) ||
        !replaceStore(path + L"\\" + toWide(drop.instanceId), toUtf8(drop.location))) {
        log(LogLevel::error,
            "Failed to keep in mind that run {%s} of job {%s} is to be dropped, error-code = %d, "
            "%m.\n",
            drop.instanceId.c_str(), jobId_.c_str(), static_cast<int>(GetLastError()));
    }
}

void PendingDrops::tell(const std::function<bool(const PendingDrop&)>& drop) const {
    const std::wstring path = folder();
    if (path.empty() || !fileExists(path)) {
        return;
    }
    for (const std::string& id : instancesIn(path)) {
        const std::wstring file = path + L"\\" + toWide(id);
        std::string location;
        if (!read(file, location)) {
            continue;
        }
        if (drop({id, toWide(location)})) {
            log(LogLevel::information, "The storage of job {%s} has dropped run {%s} now.\n",
                jobId_.c_str(), id.c_str());
        } else if (!isRefusal(GetLastError())) {
            continue;
        }
        DeleteFileW(longPath(file).c_str());
    }
    // Goes when it is empty.
    RemoveDirectoryW(longPath(path).c_str());
}

}  // namespace dorvo
