// Stores a backup on the web storage service, over HTTP with the user's session.
//
// An ItemSender encodes the items and counts; this is where its blocks go. The activity record says
// at any time how many blocks of which item the service has accepted, and AcceptedBlocks what they
// were, so that the next run goes on behind them. Both are written on the job's worker thread only;
// the stop signal comes from others.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "storage/backupstorage.h"
#include "storage/itemsender.h"
#include "storage/web/acceptedblocks.h"
#include "storage/web/webrun.h"

namespace dorvo {

class WebBackupStorage : public BackupStorage, public WebRun, private BlockSink {
public:
    // Without any cookie of the user's start() fails like a refused session.
    WebBackupStorage(WebPlace place, BackupTask task);

    bool start() override;
    bool submit_errors() override;
    bool end() override;
    bool cancel() override;
    bool backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data, uint32_t number,
                const wchar_t* readFrom) override;

    void advanced(uint64_t bytes) override { progress_.encoded(bytes); }

private:
    bool recordIncomplete(const std::string& answer);
    std::string job() const { return task_.jobId + ", " + task_.jobName; }

    void begin(const SentItem& item) override;
    bool compare(const SentItem& item, uint32_t& blocks) override;
    void giveUp(const SentItem& item) override;
    bool announce(const SentItem& item, uint32_t& held) override;
    bool goBack(const SentItem& item, uint32_t held) override;
    bool put(const SentItem& item, uint32_t number, std::span<const std::byte> block,
             uint32_t& accepted) override;
    bool finish(const SentItem& item) override;
    void begins(SendStep step, const SentItem& item) const override;
    void isThrough() const override;
    void failed(SendStep step, const SentItem& item) const override;

    // What is accepted of a package of which nothing is.
    AcceptedBlocks noneAccepted(const SentItem& item) const;

    const BackupTask task_;
    std::string instanceId_;  // empty when the record has none
    AcceptedBlocksFile acceptedFile_;
    AcceptedBlocks accepted_;       // of the current item's package
    std::vector<std::byte> block_;  // of a package that is compared
    ItemSender sender_;
};

}  // namespace dorvo
