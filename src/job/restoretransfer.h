// The run of a restore job: the list of what is wanted of a backup, its items, which are brought to
// their places, and then the directories' times again: what was put into them has changed those.
//
// No item ever leaves the folder that was chosen; one that would is a failed item.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "job/madefolders.h"
#include "job/restorelocationpolicy.h"
#include "job/restoreroots.h"
#include "job/transfer.h"
#include "jobdef/restorejobdefinition.h"
#include "source/owndata.h"
#include "storage/placingrecord.h"
#include "storage/restorecatalog.h"
#include "storage/restorestorage.h"

namespace dorvo {

class RestoreTransfer : public Transfer {
public:
    // What the run has of a restore job, borrowed. The factories give null, with the last error,
    // when there can be none.
    struct Parts {
        const RestoreJobDefinition& definition;
        PlacingRecord& placing;
        std::function<std::unique_ptr<RestoreStorage>(const StorageRun&)> createStorage;
        // What the run lists its items from.
        std::function<std::unique_ptr<RestoreCatalog>()> createCatalog;
    };

    RestoreTransfer(Context context, Parts parts);

private:
    JobState run() override;
    bool transfer(const Item& item) override;
    bool passes(const Item& item, DWORD code) override;
    void givenUp(const Item& item) override;
    bool allThrough() override;
    void tidyUp(JobState endCode) override;

    // The storage hears of every run that ends, however it ends, with its history document.
    bool openStorage() override;
    bool completeAtStorage() override { return endAtStorage(JobState::completed); }
    bool dropAtStorage(JobState& endCode) override { return endAtStorage(endCode); }
    void closeStorage() override { storage_.reset(); }
    // Its items are in their places: that the service has not heard of it makes no failure of it.
    FailureAction endAction(const Failure& failure, const EndFailures& failures) const override {
        return restoreEndFailure(failure, failures);
    }
    bool opensToEnd() const override { return false; }
    bool makeStorage(StorageUse use);
    bool endAtStorage(JobState endCode);

    bool prepare();
    bool findRoot();
    bool makeList();
    bool forgetMadeFolders();
    bool generateList();
    void choosePlaces();
    // Where the item would go if nothing were there. False, with the last error and reason_ set,
    // when that is no place to restore to.
    bool findPlace(const std::wstring& path, bool directory, std::wstring& target);
    bool restoreDirectory(const Item& item, const std::wstring& target);
    // Whether the item's attributes and times are for the target.
    bool isDressed(const std::wstring& target) const { return dressRoot_ || target != root_; }
    bool restoreFile(const Item& item);

    const RestoreJobDefinition& definition_;
    PlacingRecord& placing_;
    const decltype(Parts::createStorage) createStorage_;
    const decltype(Parts::createCatalog) createCatalog_;
    const std::wstring temporary_;  // the folder of the items' packages
    std::wstring root_;             // the chosen folder, empty for the original place
    std::wstring prefix_;           // what the root stands for
    // False where the root stands for a drive, whose attributes would hide it.
    bool dressRoot_ = false;
    // From choosePlaces() on.
    std::unique_ptr<RestoreLocationPolicy> policy_;
    std::optional<OwnData> ownData_;
    std::optional<RestoreRoots> roots_;
    std::unique_ptr<MadeFolders> made_;  // where folders that were there stay, else null
    std::unique_ptr<RestoreStorage> storage_;
};

}  // namespace dorvo
