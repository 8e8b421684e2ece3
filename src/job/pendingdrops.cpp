#include "job/pendingdrops.h"

#include <windows.h>

#include <mutex>
#include <utility>

#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/sharing_retry.h"
#include "base/text.h"
#include "base/uuid.h"
#include "job/jobdirectories.h"
#include "job/transferfailure.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

constexpr wchar_t definitionName[] = L"\\def";
constexpr std::string_view serverPrefix = "http://";  // begins no absolute path

// Keeps folders, and the definition beside the drops of removed jobs, from going while others come.
std::mutex folderLock;

// Where the drops of removed jobs are.
std::wstring handedOnRoot() {
    std::wstring path;
    return dataDirectory(path) ? path + L"\\drops" : std::wstring();
}

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
    // Whoever removes the job must not be kept from it.
    FileHandle file =
        openStoreForReading(path, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    return file && readStore(std::move(file), text);
}

std::string textOf(const PendingDrop& drop) {
    if (!drop.location.empty()) {
        return toUtf8(drop.location);
    }
    return drop.server.empty() ? std::string() : std::string(serverPrefix) + drop.server;
}

bool read(const std::wstring& folder, const std::string& id, PendingDrop& drop) {
    std::string text;
    if (!read(folder + L"\\" + toWide(id), text)) {
        return false;
    }
    const bool web = text.starts_with(serverPrefix);
    drop = {id, web ? std::wstring() : toWide(text),
            web ? text.substr(serverPrefix.size()) : std::string()};
    return true;
}

}  // namespace

PendingDrops::PendingDrops(std::string jobId) : jobId_(std::move(jobId)) {
    std::wstring path;
    folder_ = jobDirectory(jobId_, path) ? path + L"\\drops" : std::wstring();
}

PendingDrops::PendingDrops(const std::wstring& folder)
    : jobId_(toUtf8(folder.substr(folder.rfind(L'\\') + 1))), folder_(folder) {}

std::vector<std::wstring> PendingDrops::handedOn() {
    std::vector<std::wstring> folders;
    const std::wstring root = handedOnRoot();
    WIN32_FIND_DATAW entry;
    const FindHandle find(FindFirstFileW((longPath(root) + L"\\*").c_str(), &entry));
    for (bool more = static_cast<bool>(find); more; more = FindNextFileW(find.get(), &entry) != 0) {
        if (isJobId(toUtf8(entry.cFileName))) {
            folders.push_back(root + L"\\" + entry.cFileName);
        }
    }
    return folders;
}

void PendingDrops::bindTo(const std::string& server, Bind which) {
    std::vector<PendingDrops> all;
    for (const std::wstring& directory : jobDirectories()) {
        all.emplace_back(toUtf8(directory.substr(directory.rfind(L'\\') + 1)));
    }
    for (const std::wstring& folder : handedOn()) {
        all.emplace_back(folder);
    }
    for (const PendingDrops& drops : all) {
        for (const std::string& id : instancesIn(drops.folder_)) {
            PendingDrop drop;
            if (read(drops.folder_, id, drop) && drop.location.empty() && drop.server != server &&
                (which == Bind::all || drop.server.empty())) {
                drop.server = server;
                drops.add(drop);
            }
        }
    }
}

void PendingDrops::failed(const PendingDrop& drop, unsigned long error) const {
    if (!isRefusal(error)) {
        add(drop);
    }
}

void PendingDrops::add(const PendingDrop& drop) const {
    const LastErrorGuard keep;
    if (drop.instanceId.empty() || folder_.empty()) {
        return;
    }
    const std::lock_guard guard(folderLock);
    if (!createDirectories(folder_) ||
        !replaceStore(folder_ + L"\\" + toWide(drop.instanceId), textOf(drop))) {
        log(LogLevel::error,
            "Failed to keep in mind that run {%s} of job {%s} is to be dropped, error-code = %d, "
            "%m.\n",
            drop.instanceId.c_str(), jobId_.c_str(), static_cast<int>(GetLastError()));
    }
}

void PendingDrops::forget(const std::string& instanceId) const {
    if (instanceId.empty() || folder_.empty()) {
        return;
    }
    const std::wstring file = folder_ + L"\\" + toWide(instanceId);
    SharingRetry retry;
    bool gone = false;
    do {
        gone = DeleteFileW(longPath(file).c_str()) != 0 || isMissing(file);
    } while (!gone && retry.again(ERROR_ACCESS_DENIED));
    if (!gone) {
        log(LogLevel::error,
            "Failed to forget that run {%s} of job {%s} was to be dropped, error-code = %d, %m.\n",
            instanceId.c_str(), jobId_.c_str(), static_cast<int>(GetLastError()));
    }
}

void PendingDrops::tell(const std::function<bool(const PendingDrop&)>& drop) const {
    static std::mutex telling;
    const std::unique_lock guard(telling, std::try_to_lock);
    if (!guard || !any()) {
        return;
    }
    for (const std::string& id : instancesIn(folder_)) {
        PendingDrop pending;
        if (!read(folder_, id, pending)) {
            continue;
        }
        if (drop(pending)) {
            log(LogLevel::information, "The storage of job {%s} has dropped run {%s} now.\n",
                jobId_.c_str(), id.c_str());
        } else if (!isRefusal(GetLastError())) {
            continue;
        }
        DeleteFileW(longPath(folder_ + L"\\" + toWide(id)).c_str());
    }
    const std::lock_guard ending(folderLock);
    if (!any()) {
        DeleteFileW(longPath(folder_ + definitionName).c_str());
    }
    // Goes when it is empty.
    RemoveDirectoryW(longPath(folder_).c_str());
}

void PendingDrops::handOn(const JobDefinition& definition) const {
    if (!any()) {
        return;
    }
    const std::wstring to = handedOnRoot() + L"\\" + toWide(jobId_);
    const std::lock_guard guard(folderLock);
    // The definition comes first: without it nobody would know whose runs they are.
    bool kept = createDirectories(to) && definition.save(to + definitionName);
    for (const std::string& id : instancesIn(folder_)) {
        const std::wstring name = L"\\" + toWide(id);
        kept = kept && MoveFileExW(longPath(folder_ + name).c_str(), longPath(to + name).c_str(),
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
    }
    if (!kept) {
        log(LogLevel::error,
            "Failed to keep in mind which runs of job {%s} are to be dropped, error-code = %d, "
            "%m.\n",
            jobId_.c_str(), static_cast<int>(GetLastError()));
    }
}

bool PendingDrops::any() const {
    return !folder_.empty() && !instancesIn(folder_).empty();
}

}  // namespace dorvo
