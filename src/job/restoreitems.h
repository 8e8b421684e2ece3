// Brings the items of a run's source list to their places, and then gives the directories their
// times again: what was put into them has changed those.
#pragma once

#include <memory>
#include <string>

#include "job/madefolders.h"
#include "job/restorejob.h"
#include "job/restorelocationpolicy.h"
#include "job/restoreroots.h"
#include "job/transferitems.h"
#include "source/owndata.h"

namespace dorvo {

class RestoreItems : public TransferItems {
public:
    RestoreItems(RestoreJob& job, JobActivitySourceReader& reader, std::wstring list);

private:
    bool transfer(const Item& item) override;
    bool passes(const Item& item, DWORD code) override;
    bool allThrough() override;

    // Where the item would go if nothing were there. False, with the last error and reason_ set,
    // when that is no place to restore to.
    bool findPlace(const std::wstring& path, bool directory, std::wstring& target);
    bool restoreDirectory(const Item& item, const std::wstring& target);
    // Whether the item's attributes and times are for the target.
    bool isDressed(const std::wstring& target) const { return dressRoot_ || target != root_; }
    bool restoreFile(const Item& item);

    RestoreJob& job_;
    const std::wstring list_;  // the source list's path
    std::wstring root_;        // the chosen folder, empty for the original place
    std::wstring prefix_;      // what the root stands for
    // False where the root stands for a drive, whose attributes would hide it.
    bool dressRoot_ = false;
    std::unique_ptr<RestoreLocationPolicy> policy_;
    OwnData ownData_;
    RestoreRoots roots_;
    std::unique_ptr<MadeFolders>
        made_;  // where folders that were there stay as they are, else null
};

}  // namespace dorvo
