#include "storage/local/localkey.h"

#include "storage/local/localerror.h"

namespace dorvo {
namespace {

// Empty when the job has no backup yet.
bool findMd5(const LocalPlace& place, const std::string& instanceId, std::string& md5) {
    LocalInstanceDocument document;
    if (place.load(instanceId, document)) {
        md5 = document.keyMd5;
        return true;
    }
    LocalPlace::Newest newest;
    if (!isNotFound(GetLastError()) || !place.newest(instanceId, newest)) {
        return false;
    }
    md5 = newest.completed.keyMd5;
    return true;
}

bool failed(const LocalPlace& place, const std::string& user) {
    failedIn(place.location());
    return logFailure("find the key of user", user);
}

}  // namespace

bool findBackupKey(const LocalPlace& place, const std::string& instanceId, const std::string& user,
                   UserKey& key) {
    if (!place.checkToWrite()) {
        return false;
    }
    std::string md5;
    return (findMd5(place, instanceId, md5) &&
            (md5.empty() ? ownKey(user, key) : heldKey(user, md5, key))) ||
           failed(place, user);
}

bool findRestoreKey(const LocalPlace& place, const std::string& instanceId, const std::string& user,
                    UserKey& key) {
    if (!place.checkToRead()) {
        return false;
    }
    LocalInstanceDocument document;
    return (place.loadCompleted(instanceId, document) && heldKey(user, document.keyMd5, key)) ||
           failed(place, user);
}

}  // namespace dorvo
