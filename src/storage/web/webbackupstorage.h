// Stores a backup on the web storage service, over HTTP with the user's session.
//
// Each item is encoded into a temporary package, announced, and sent in blocks of 128 KiB. The
// activity record says at any time how many blocks of which item the service has accepted, and
// AcceptedBlocks what they were, so that the next run goes on behind them. Both are written on the
// job's worker thread only; the stop signal comes from others.
#pragma once

#include <windows.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/log.h"
#include "record/itemprogress.h"
#include "source/backuptransformation.h"
#include "storage/backupstorage.h"
#include "storage/items.h"
#include "storage/storagetask.h"
#include "storage/web/acceptedblocks.h"
#include "storage/web/patient_interrupter.h"
#include "storage/web/web_session.h"
#include "storage/web/webplace.h"

namespace dorvo {

class HTTP_Command;

class WebBackupStorage : public BackupStorage, public patient_interrupter {
public:
    // Without any cookie of the user's start() fails like a refused session.
    WebBackupStorage(WebPlace place, BackupTask task);

    bool start() override;
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override;
    bool end() override;
    bool cancel() override;
    bool backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data, uint32_t number,
                const wchar_t* readFrom) override;

    void advanced(uint64_t bytes) override { progress_.encoded(bytes); }

private:
    struct Item;

    bool upload_file_info(const Item& item, std::optional<uint64_t>& held);
    bool upload_file_data(const Item& item, const std::byte* data, DWORD length);
    bool submit_errors();
    bool recordIncomplete(const std::string& answer);
    bool store(const Item& item);
    bool encode(const Item& item);
    bool claimPackage(const Item& item, uint64_t size);
    bool countAccepted(const Item& item, bool& same);
    // What is accepted of a package of which nothing is.
    AcceptedBlocks noneAccepted(const std::string& name, uint64_t size) const;
    bool goBack(const Item& item, uint64_t blocks);
    bool send(const Item& item);
    bool sendBlocks(const Item& item, HANDLE package);
    // Of a stopped item: name, target when the step is about it, offset and code.
    using StoppedItem = LogText<std::string, uint64_t, int>;
    using StoppedTarget = LogText<std::string, std::string, uint64_t, int>;
    using StoppedLine = std::variant<StoppedItem, StoppedTarget>;
    template <class LogFailure>
    bool stepFailed(const Item& item, StoppedLine cancelled, LogFailure logFailure) const;
    bool aimAtServer();
    bool exchange(HTTP_Command& command, const char* verb, const std::string& subject);
    std::string job() const { return task_.jobId + ", " + task_.jobName; }

    const WebPlace place_;
    const BackupTask task_;
    const JobActivity* activity_;  // borrowed
    ItemProgress progress_;        // the way to write there
    std::string instanceId_;       // empty when the record has none
    std::wstring temporary_;       // the folder of the packages
    AcceptedBlocksFile acceptedFile_;
    AcceptedBlocks accepted_;  // of the current item's package
    Web_Session session_;
    BackupTransformation transformation_;
    std::vector<std::byte> block_;
};

}  // namespace dorvo
