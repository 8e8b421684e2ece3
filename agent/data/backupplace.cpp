#include "data/backupplace.h"

#include <windows.h>

#include "base/error_codes.h"
#include "base/paths.h"
#include "base/text.h"
#include "data/givenpaths.h"
#include "data/users.h"
#include "job/storagefactory.h"
#include "text/agenterror.h"
#include "text/failuretext.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

std::wstring existingFolder(const std::string& folder) {
    std::wstring path = onDiskPath(toWide(folder), true);
    const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        throw AgentError("'" + toUtf8(path) + "' is no folder", exitUsage);
    }
    return path;
}

}  // namespace

BackupPlace::BackupPlace(const std::string& folder, const std::string& user) {
    if (folder.empty()) {
        requireServer();
        user_ = chooseUser(user);
    } else {
        location_ = existingFolder(folder);
        user_ = user;
    }
    backend_ = backendAt(location_, user_);
}

void BackupPlace::assignTo(JobDefinition& job) const {
    local() ? job.useLocalStorage(location_) : job.useWebStorage();
}

std::vector<StoredInstance> BackupPlace::runs(const std::string& machine,
                                              const std::string& jobId) const {
    std::vector<StoredInstance> found;
    if (!backend_->runs(machine, jobId, found)) {
        throw AgentError(failure(GetLastError()));
    }
    return found;
}

std::unique_ptr<RestoreCatalog> BackupPlace::catalog(const StoredInstance& run) const {
    return backend_->catalog(run.run(), nullptr, nullptr);
}

HeldPath BackupPlace::find(RestoreCatalog& catalog, const StoredInstance& run,
                           const std::string& given) const {
    HeldPath held;
    if (!findHeldPath(catalog, given, held)) {
        throw AgentError(failure(GetLastError()));
    }
    if (held.path.empty()) {
        const std::string lost =
            held.missing == 0 ? std::string() : ", and " + lostWords(held.missing);
        throw AgentError("The run " + run.jobInstanceId + " holds nothing at '" + given + "'" +
                         lost + ": '" + command("files " + run.jobInstanceId) +
                         "' shows what it holds");
    }
    return held;
}

std::string BackupPlace::lostWords(uint64_t missing) {
    return countText(missing, "item") + " of its list " + (missing == 1 ? "is" : "are") +
           " lost at the storage";
}

std::string BackupPlace::failure(uint32_t error) const {
    if (!local()) {
        return requestFailure(error, user_);
    }
    return "The backups in '" + toUtf8(location_) + "' cannot be read: " + failureText(error);
}

std::string BackupPlace::command(const std::string& words) const {
    return "agent " + words + (local() ? " --local \"" + toUtf8(location_) + "\"" : "");
}

}  // namespace dorvo::agent
