// The web storage service as the place of one user's backups: the server that the options name when
// something is made, in the session that the store has of the user then.
#pragma once

#include <string>

#include "storage/backend.h"
#include "storage/web/webplace.h"

namespace dorvo {

class WebBackend : public Backend {
public:
    explicit WebBackend(std::string user) : user_(std::move(user)) {}

    bool keyForBackup(const BackupTask& task, UserKey& key) const override;
    bool keyForRestore(const RestoreTask& task, UserKey& key) const override;
    std::unique_ptr<BackupStorage> backup(BackupTask task) const override;
    std::unique_ptr<RestoreStorage> restore(RestoreTask task) const override;
    std::unique_ptr<IncrementCheck> incrementCheck(const BackupTask& task) const override;
    std::unique_ptr<RestoreCatalog> catalog(const StoredRun& run, JobActivity* activity,
                                            HANDLE stop) const override;
    bool runs(const std::string& machine, const std::string& jobId,
              std::vector<StoredInstance>& found) const override;

private:
    WebPlace place() const;

    std::string user_;
};

}  // namespace dorvo
