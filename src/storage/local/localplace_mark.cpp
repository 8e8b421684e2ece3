// How a place is told from the empty folder that stands there while its disk is not mounted.
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "settings/storefile.h"
#include "storage/local/localerror.h"
#include "storage/local/localplace.h"

namespace dorvo {
namespace {

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
