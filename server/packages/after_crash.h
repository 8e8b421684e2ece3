// What a crash has left of the backups that were under way: one of the process, or of the machine.
//
// The catalog may count blocks whose bytes are not on the disk: a power cut came first, or the disk
// refused them and the process died before that was on record, which no later sync would tell.
// Those that a sync point covers are there; all others are read from the disk and compared with
// their digests, half a minute's worth as a rule. A package keeps its blocks up to the first that
// is not what it was: the client is told when it comes back, and sends the rest. Completed backups
// are on the disk and are not looked at.
#pragma once

#include "catalog/catalog.h"
#include "packages/block_store.h"

namespace dorvo {

struct KeptAfterCrash {
    int64_t packages = 0;   // that were looked at
    int64_t shortened = 0;  // of these, those that have lost blocks
};

// Before service begins. Throws std::exception when the storage is down; may be begun anew.
KeptAfterCrash keepWhatIsWhole(Catalog& catalog, BlockStore& blocks);

}  // namespace dorvo
