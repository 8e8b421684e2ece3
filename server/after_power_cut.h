// What a power cut has left of the backups that were under way.
//
// The catalog may count blocks whose bytes never reached the disk. Those that a sync point covers
// did; all others are read and compared with their digests, half a minute's worth as a rule. A
// package keeps its blocks up to the first that is not what it was: the client is told when it
// comes back, and sends the rest. Completed backups are on the disk and are not looked at.
#pragma once

#include "block_store.h"
#include "catalog.h"

namespace dorvo {

struct KeptAfterPowerCut {
    int64_t packages = 0;   // that were looked at
    int64_t shortened = 0;  // of these, those that have lost blocks
};

// Before service begins. Throws std::exception when the storage is down; may be begun anew.
KeptAfterPowerCut keepWhatIsWhole(Catalog& catalog, BlockStore& blocks);

}  // namespace dorvo
