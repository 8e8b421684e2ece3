// Stores a backup in a folder: a disk, or a share. docs/formats/local-storage.md says how.
//
// An ItemSender encodes the items and counts; their packages go behind the instance's others, in
// blocks of 128 KiB. The activity record says how many blocks of which item are there, so that the
// next run goes on behind them. It is written on the job's worker thread only; the stop signal
// comes from others.
//
// Items are numbered from 1 without a gap. A run that goes on holds what is there against its
// source list, so that it notices what it has lost.
//
// From start() on nobody else can write to the instance (32 for a second process).
//
// Besides the errors of BackupStorage: 10070 for any failure while the folder is gone or its disk
// is full, because both are over when the user has seen to it; errorKeyForeign from start() when
// the job's last completed backup was made with another key; 5023 for what the state of the
// instance forbids: changing a completed one, completing one that lacks files, going on with one of
// which something is damaged or lost; 13 when a document is damaged.
#pragma once

#include <windows.h>

#include <array>
#include <memory>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "base/interrupter.h"
#include "base/md5.h"
#include "record/itemprogress.h"
#include "storage/backupstorage.h"
#include "storage/items.h"
#include "storage/itemsender.h"
#include "storage/local/localplace.h"
#include "storage/storagetask.h"

namespace dorvo {

class LocalInstanceWriter;

class LocalBackupStorage : public BackupStorage, public interrupter, private BlockSink {
public:
    // The user is whose backup it is to be.
    LocalBackupStorage(LocalPlace place, std::string user, BackupTask task);
    ~LocalBackupStorage() override;

    bool start() override;
    bool end() override;
    bool cancel() override;
    bool backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data, uint32_t number,
                const wchar_t* readFrom) override;

    void advanced(uint64_t bytes) override { progress_.encoded(bytes); }

private:
    bool ready(const char* action) const;
    bool open();
    bool openNew(const LocalPlace::Newest& newest);
    bool goOn();
    bool keepItems();
    std::unordered_set<std::string> failedPaths() const;
    bool isWhole();
    bool complete();
    void begin(const SentItem& item) override;
    bool compare(const SentItem& item, uint32_t& blocks) override;
    void giveUp(const SentItem&) override {}
    bool announce(const SentItem&, uint32_t&) override { return true; }
    bool goBack(const SentItem&, uint32_t) override { return true; }
    bool put(const SentItem& item, uint32_t number, std::span<const std::byte> block,
             uint32_t& accepted) override;
    bool finish(const SentItem& item) override;
    void failed(SendStep step, const SentItem& item) const override;
    std::string job() const { return task_.jobId + ", " + task_.jobName; }

    const LocalPlace place_;
    const std::string user_;
    const BackupTask task_;
    const JobActivity* activity_;                  // borrowed
    ItemProgress progress_;                        // the way to write there
    std::string instanceId_;                       // empty when the record has none
    std::wstring list_;                            // the path of the run's source list
    std::unique_ptr<LocalInstanceWriter> writer_;  // from start() to end() or cancel()
    LocalInstanceDocument document_;               // of the instance, with the writer
    bool completed_ = false;                       // the instance is
    Md5 digest_;                                   // of the current package, as far as it is there
    std::vector<std::byte> block_;                 // of a package that is compared,
    std::vector<std::byte> stored_;                // and what lies in the packages
    ItemSender sender_;
};

}  // namespace dorvo
