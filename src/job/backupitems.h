// Hands the items of a run's source list to the backup storage, files from the volume's snapshot.
#pragma once

#include <string>

#include "job/backupjob.h"
#include "job/transferitems.h"

namespace dorvo {

class BackupItems : public TransferItems {
public:
    BackupItems(BackupJob& job, JobActivitySourceReader& reader);

private:
    bool transfer(const Item& item) override;
    bool passes(const Item& item, DWORD code) override;
    void enterVolume(const std::wstring& path) override;
    bool isDiskOfPackagesFull();
    std::wstring readFrom(const std::wstring& path) const;

    BackupJob& job_;
    const JobVolume* volume_ = nullptr;  // the current one, of the job's map
    const std::wstring temporary_;       // the folder of the items' packages
};

}  // namespace dorvo
