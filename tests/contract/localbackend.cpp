#include "contract/backend.h"
#include "contract/packagefiles.h"
#include "storage/local/localbackupstorage.h"
#include "storage/local/localincrementcheck.h"
#include "storage/local/localrestorecatalog.h"
#include "storage/local/localrestorestorage.h"
#include "support/temporary_folder.h"

namespace dorvo::test {
namespace {

constexpr const char* machine = "machine";

class LocalBackEnd : public BackEnd {
public:
    std::unique_ptr<BackupStorage> backup(const Run& run) override {
        return std::make_unique<LocalBackupStorage>(LocalBackupStorage::Run{
            {run.jobId, "name", run.key, {}, run.activity, run.failed, run.stop},
            folder_.path(),
            machine,
            "user",
            run.compress,
            run.totals});
    }
    std::unique_ptr<IncrementCheck> check(const Run& run) override {
        return std::make_unique<LocalIncrementCheck>(LocalIncrementCheck::Run{
            folder_.path(), machine, run.jobId, run.instanceId, run.key, {}, run.stop});
    }
    std::unique_ptr<RestoreStorage> restore(const Restore& restore) override {
        return std::make_unique<LocalRestoreStorage>(LocalRestoreStorage::Run{{restore.jobId,
                                                                               "name",
                                                                               restore.key,
                                                                               {},
                                                                               restore.activity,
                                                                               restore.failed,
                                                                               restore.stop},
                                                                              folder_.path(),
                                                                              machine,
                                                                              restore.backupJob,
                                                                              restore.instanceId});
    }
    std::unique_ptr<RestoreCatalog> catalog(const std::string& backupJob,
                                            const std::string& instanceId) override {
        return std::make_unique<LocalRestoreCatalog>(
            LocalRestoreCatalog::Run{folder_.path(), machine, backupJob, instanceId, nullptr});
    }
    void damage(const std::string& backupJob, const std::string& instanceId) override {
        flipFirstByte(LocalPlace(folder_.path(), machine, backupJob).packages(instanceId));
    }
    uint64_t kept() override { return packageBytes(packageFiles(folder_.path(), L"packages")); }
    DWORD wrongState() const override { return ERROR_INVALID_STATE; }
    bool namesWhatIsMissing() const override { return false; }

private:
    TemporaryFolder folder_{L"contract backups"};
};

}  // namespace

NamedBackEnd localBackEnd() {
    return {"Local", [] { return std::make_unique<LocalBackEnd>(); }};
}

}  // namespace dorvo::test
