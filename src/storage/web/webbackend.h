// The web storage service as the place of one user's backups: the server that the options name when
// something is made, in the session that the store has of the user then.
#pragma once

#include <string>

#include "storage/backend.h"
#include "storage/web/webrun.h"

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
    // As the service orders them, asked for page by page. Besides marked statuses and socket
    // errors: 87 when no server is set, 13 for an answer that is none.
    bool runs(const std::string& machine, const std::string& jobId,
              std::vector<StoredInstance>& found) const override;

private:
    WebPlace place() const;

    std::string user_;
};

}  // namespace dorvo
