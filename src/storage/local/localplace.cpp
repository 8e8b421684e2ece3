#include "storage/local/localplace.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "base/files.h"
#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "settings/storefile.h"
#include "storage/local/localerror.h"

namespace dorvo {
namespace {

// Between a document that cannot be read and those that can there may be runs that were dropped,
// but not as many as this.
constexpr uint64_t unreadableGap = 1 << 20;

constexpr uint64_t longestDocument = 1 << 20;  // bytes; what is longer is none

std::wstring tidy(std::wstring location) {
    std::replace(location.begin(), location.end(), L'/', L'\\');
    while (location.size() > 1 && location.back() == L'\\') {
        location.pop_back();
    }
    return location;
}

// A drive's or a share's: what is relative would depend on where the process happens to stand.
bool isFullPath(const std::wstring& path) {
    return longPath(path + L"\\").starts_with(L"\\\\");
}

// No machine can have that name: its backups lie beside the mark.
constexpr wchar_t markName[] = L"\\dorvo-backups.txt";
constexpr char markText[] =
    "Backups lie in this folder. By this file the agent knows that their disk is there: keep "
    "it.\r\n";

std::wstring notePath(const std::string& jobId) {
    std::wstring path;
    return jobDirectory(jobId, path) ? path + L"\\place" : std::wstring();
}

}  // namespace

LocalPlace::LocalPlace(std::wstring location, const std::string& machine, const std::string& jobId)
    : location_(tidy(std::move(location))), machine_(machine), jobId_(jobId) {
    if (isJobId(machine) && isJobId(jobId) && isFullPath(location_)) {
        folder_ = location_ + L"\\" + toWide(machine) + L"\\" + toWide(jobId);
    }
}

bool LocalPlace::check() const {
    SetLastError(folder_.empty() ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS);
    if (folder_.empty()) {
        return logFailure("find the backups of a machine and job in folder", toUtf8(location_));
    }
    failedNear(location_);
    return GetLastError() == ERROR_SUCCESS;
}

std::wstring LocalPlace::instance(const std::string& id) const {
    GUID guid{};
    const bool named = !folder_.empty() && uuidFromText(id, guid);
    return folder_ + L"\\" + (named ? toWide(uuidText(guid)) : std::wstring(L"?"));
}

bool LocalPlace::makeInstance(const std::string& id) const {
    const std::wstring folder = instance(id);
    for (size_t end = location_.size(); end != std::wstring::npos;) {
        end = folder.find(L'\\', end + 1);
        if (CreateDirectoryW(longPath(folder.substr(0, end)).c_str(), nullptr) == 0 &&
            GetLastError() != ERROR_ALREADY_EXISTS) {
            return false;
        }
    }
    return true;
}

bool LocalPlace::load(const std::string& id, LocalInstanceDocument& document) const {
    // Who reads it must not keep the run that writes it from replacing it.
    FileHandle file = openStoreForReading(this->document(id),
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    uint64_t size = 0;
    std::string text;
    if (!file || !fileSize(file.get(), size) ||
        (size <= longestDocument && !readStore(std::move(file), text))) {
        return false;
    }
    const auto read = parseLocalInstance(text);
    if (!read || !equalsIgnoreCase(read->id, id)) {
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    document = *read;
    return true;
}

bool LocalPlace::find(const std::string& id, LocalInstanceDocument& document) const {
    document = {};
    return load(id, document) || isNotFound(GetLastError());
}

bool LocalPlace::loadCompleted(const std::string& id, LocalInstanceDocument& document) const {
    if (!load(id, document)) {
        const DWORD error = GetLastError();
        SetLastError(isNotFound(error) || error == ERROR_INVALID_NAME ? DWORD{ERROR_NOT_FOUND}
                                                                      : error);
        return false;
    }
    SetLastError(errorInstanceState);
    return document.state == LocalInstanceDocument::State::completed;
}

bool LocalPlace::save(const LocalInstanceDocument& document) const {
    // Makes no folders: a location that is gone must not come to be on another disk.
    return replaceStore(this->document(document.id), formatLocalInstance(document));
}

bool LocalPlace::each(const std::function<void(const LocalInstanceDocument&)>& visit,
                      const std::function<void(const std::string&)>& unreadable) const {
    const bool listed = eachFolder(folder_, [&](const std::wstring& name) {
        const std::string id = toUtf8(name);
        LocalInstanceDocument document;
        if (localInstanceId(id) == LocalInstanceId{}) {
            return;
        }
        if (load(id, document)) {
            visit(document);
        } else if (!isNotFound(GetLastError())) {
            logFailure("read the document of backup", toUtf8(instance(id)));
            unreadable(id);
        }
    });
    return listed || isNotFound(GetLastError());
}

bool LocalPlace::newest(const std::string& except, Newest& found) const {
    found = {};
    bool allRead = true;
    const bool listed = each(
        [&](const LocalInstanceDocument& document) {
            if (equalsIgnoreCase(document.id, except)) {
                return;
            }
            found.sequence = std::max(found.sequence, document.sequence);
            if (document.state != LocalInstanceDocument::State::completed) {
                found.running.push_back(document.id);
            } else if (found.completed.id.empty() || document.sequence > found.completed.sequence) {
                found.completed = document;
            }
        },
        [&](const std::string&) { allRead = false; });
    if (!allRead) {
        // It may be the last one, and must be so again when somebody mends it.
        found.sequence += unreadableGap;
    }
    return listed;
}

LocalInstanceId localInstanceId(const std::string& text) {
    GUID guid{};
    uuidFromText(text, guid);
    LocalInstanceId id{};
    static_assert(sizeof(id) == sizeof(guid));
    std::memcpy(id.data(), &guid, sizeof(guid));
    return id;
}

bool isNotFound(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

bool eachFolder(const std::wstring& folder, const std::function<void(const std::wstring&)>& visit) {
    WIN32_FIND_DATAW entry;
    const FindHandle find(FindFirstFileW((longPath(folder) + L"\\*").c_str(), &entry));
    if (!find) {
        return false;
    }
    do {
        const std::wstring name = entry.cFileName;
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
            (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 && name != L"." &&
            name != L"..") {
            visit(name);
        }
    } while (FindNextFileW(find.get(), &entry) != 0);
    return GetLastError() == ERROR_NO_MORE_FILES;
}

std::string keyMd5(const UserKey& key) {
    Md5 md5;
    md5.update(std::as_bytes(std::span(key.key)));
    md5.update(std::as_bytes(std::span(key.iv)));
    return md5.final();
}

// A place is told by its mark from the empty folder that stands there while its disk is not
// mounted.
bool LocalPlace::checkToWrite() const {
    if (!check() || (isMissing(location_ + markName) && isRemembered(jobId_) && !holdsDocument() &&
                     !failedAway(location_, toUtf8(markName + 1)))) {
        return false;
    }
    if (isMissing(location_ + markName)) {
        mark();
    }
    // The mark comes first: a job that remembers one which was never made would wait for it.
    if (fileExists(location_ + markName)) {
        remember(jobId_);
    }
    return true;
}

bool LocalPlace::checkToDrop(const std::string& id) const {
    return check() && (!isMissing(location_ + markName) || !isMissing(instance(id)) ||
                       holdsDocument() || failedAway(location_));
}

bool LocalPlace::checkToRead() const {
    if (!check()) {
        return false;
    }
    if (isAway()) {
        return failedAway(location_);
    }
    if (isMissing(location_ + markName) && isMissing(folder_)) {
        // A folder that was mistyped holds nothing, however long one waits.
        SetLastError(ERROR_NOT_FOUND);
        return logFailure("find any backup of the job in folder", toUtf8(location_));
    }
    return true;
}

bool LocalPlace::isAway() const {
    std::wstring jobs;
    if (!isMissing(location_ + markName) || !isMissing(folder_) || !jobRoot(jobs)) {
        return false;
    }
    // What cannot be read of another job says nothing: a restore would wait in any empty folder.
    bool known = isRemembered(jobId_);
    eachFolder(jobs, [&](const std::wstring& id) {
        known = known || remembered(toUtf8(id)) == Remembered::yes;
    });
    return known;
}

// Also one that cannot be read.
bool LocalPlace::holdsDocument() const {
    bool holds = false;
    eachFolder(folder_, [&](const std::wstring& name) {
        holds = holds || fileExists(document(toUtf8(name)));
    });
    return holds;
}

// A note that cannot be read speaks for the place: the job waits rather than begin in a wrong one.
bool LocalPlace::isRemembered(const std::string& jobId) const {
    return remembered(jobId) != Remembered::no;
}

LocalPlace::Remembered LocalPlace::remembered(const std::string& jobId) const {
    const std::wstring note = notePath(jobId);
    if (note.empty() || isMissing(note)) {
        return Remembered::no;
    }
    std::string text;
    FileHandle file = openStoreForReading(note, FILE_SHARE_READ);
    if (!file || !readStore(std::move(file), text)) {
        return Remembered::unread;
    }
    return equalsIgnoreCase(text, toUtf8(location_)) ? Remembered::yes : Remembered::no;
}

// Without a note or a mark the place is as good as before, only not told from an empty folder.
void LocalPlace::remember(const std::string& jobId) const {
    if (isRemembered(jobId)) {
        return;
    }
    const std::wstring note = notePath(jobId);
    if (note.empty() || !replaceStore(note, toUtf8(location_))) {
        logFailure("remember the folder of backups", toUtf8(location_));
    }
}

void LocalPlace::mark() const {
    if (!replaceStore(location_ + markName, markText)) {
        logFailure("mark the folder of backups", toUtf8(location_));
    }
}

}  // namespace dorvo
