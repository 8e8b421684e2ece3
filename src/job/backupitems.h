// Hands the items of a run's source list to the storage, one at a time, from where the activity
// record says the list stands.
//
// The record's position is that of the item being worked on, so a run that is cut off anywhere
// comes back to it. Runs on the job's work thread; job and reader are borrowed.
#pragma once

#include <windows.h>

#include <string>

#include "job/activity/jobactsrcreader.h"
#include "job/backupjob.h"

namespace dorvo {

class BackupItems {
public:
    BackupItems(BackupJob& job, JobActivitySourceReader& reader);

    // Gives the end code, like BackupRun::carryOut().
    int store();

private:
    enum class Step { next, finished, ended };

    struct Item {
        std::wstring path;
        WIN32_FILE_ATTRIBUTE_DATA data{};
        uint32_t number = 0;
    };

    bool takePosition();
    Step step(uint32_t tag);
    Step enterVolume();
    Step storeItem(bool directory);
    Step itemFailed(const Item& item, unsigned long code);
    Step damaged();
    Step fail(unsigned long code);
    void useVolume(int32_t index);
    std::wstring readFrom(const std::wstring& path) const;
    int endCode() const;

    BackupJob& job_;
    JobActivity& record_;
    JobActivitySourceReader& reader_;
    const JobVolume* volume_ = nullptr;  // the current one, of the job's map
    const std::wstring temporary_;       // the folder of the items' packages
    bool setEnded_ = false;
    bool fileDone_ = false;   // the file at the record's position is through
    uint64_t doneBytes_ = 0;  // its size
};

}  // namespace dorvo
