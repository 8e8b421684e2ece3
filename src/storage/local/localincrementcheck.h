// Compares the files of a run with the job's last completed backup in a folder.
//
// A file whose path and last-write time are the same is carried over: the run's instance refers to
// its package, if that is whole, no restore has found it damaged, and the file did not fail there.
// All others are awaited: the instance completes only when each has its package or is on the error
// list. A last backup whose index is damaged or gone carries nothing over. What check() has
// answered is on the disk.
//
// One object asks for one list, from its first file on; another one begins the list anew. The
// object holds the instance like the storage does: let it go before the storage starts. One thread;
// the stop signal is borrowed. Holds 16 bytes for each file of the last backup.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/interrupter.h"
#include "source/incrementcheck.h"
#include "storage/local/localplace.h"
#include "storage/storagetask.h"

namespace dorvo {

class LocalBase;
class LocalInstanceWriter;

class LocalIncrementCheck : public IncrementCheck {
public:
    LocalIncrementCheck(LocalPlace place, const BackupTask& task);
    ~LocalIncrementCheck() override;

    // False: logged; the errors are those of LocalBackupStorage::start().
    bool check(const std::vector<File>& files, std::vector<bool>& send) override;

private:
    bool begin();
    bool judge(const std::vector<File>& files, std::vector<bool>& send);

    const LocalPlace place_;
    const std::string instanceId_;  // empty when the record has none
    const std::string keyMd5_;
    interrupter stop_;
    std::unique_ptr<LocalBase> base_;              // null: no completed backup
    std::unique_ptr<LocalInstanceWriter> writer_;  // from the first check on
};

}  // namespace dorvo
