// A folder as the place of backups, of all machines and jobs.
//
// Each backup's document names the key that it was made with: a job goes on with the key that it
// began with, and takes the machine's own (made when the user has none) when it has no backup yet;
// a restore takes that of its backup. Besides the errors of Backend: 10070 while the folder is
// gone, 13 for a damaged document, and for a restore 1168 and 5023 as LocalPlace::loadCompleted has
// them.
#pragma once

#include <string>

#include "storage/backend.h"

namespace dorvo {

class LocalBackend : public Backend {
public:
    // Without a user's name keys cannot be found, and the runs are those of all users. Without a
    // machine's, backups are this one's.
    explicit LocalBackend(std::wstring location, std::string user = {}, std::string machine = {})
        : location_(std::move(location)), user_(std::move(user)), machine_(std::move(machine)) {}

    bool keyForBackup(const BackupTask& task, UserKey& key) const override;
    bool keyForRestore(const RestoreTask& task, UserKey& key) const override;
    std::unique_ptr<BackupStorage> backup(BackupTask task) const override;
    std::unique_ptr<RestoreStorage> restore(RestoreTask task) const override;
    std::unique_ptr<IncrementCheck> incrementCheck(const BackupTask& task) const override;
    std::unique_ptr<RestoreCatalog> catalog(const StoredRun& run, JobActivity* activity,
                                            HANDLE stop) const override;
    // The state is "running" or "completed". Last come those whose document cannot be read, which
    // is logged: in state "damaged", of whatever user, with the time when the document was written
    // for their end. 10070 also for a folder that is empty where a job of this machine remembers
    // backups, because its disk is not mounted; 87 for a machine or job that is no name for a
    // folder.
    bool runs(const std::string& machine, const std::string& jobId,
              std::vector<StoredInstance>& found) const override;

private:
    bool ownMachine(std::string& machine) const;

    std::wstring location_;
    std::string user_;
    std::string machine_;
};

}  // namespace dorvo
