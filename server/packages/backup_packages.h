// What concerns catalog and packages of a whole backup: whether its packages are there, what is
// lost of it, what a crash has left of it, and the freeing of what it gave up.
//
// All go through the items of a backup in pieces, others get their turn at the catalog after each.
// The caller sees to it that nobody adds items meanwhile. Any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "catalog/instances.h"
#include "packages/block_store.h"

namespace dorvo {

// Before a backup is completed: each item whose package is gone, cut short or known as damaged, or
// whose row is unsound, is awaited again, and such packages are carried over no more. How many
// items are complete after that; nothing when the order of its rows is broken, so that not all of
// them could be looked at.
std::optional<int64_t> checkPackages(Instances& instances, BlockStore& blocks, int64_t instance);

// How many of the completed instance's items its list has lost; at least so many where the order of
// the list is broken as well.
int64_t countLost(Instances& instances, const Instance& instance);

// What a crash, of the process or of the machine, has left of the backups that were under way.
//
// The catalog may count blocks whose bytes are not on the disk: a power cut came first, or the disk
// refused them and the process died before that was on record, which no later sync would tell.
// Those that a sync point covers are there; all others are read from the disk and compared with
// their digests, half a minute's worth as a rule. A package keeps its blocks up to the first that
// is not what it was: the client is told when it comes back, and sends the rest. Completed backups
// are on the disk and are not looked at.
struct KeptAfterCrash {
    int64_t packages = 0;   // that were looked at
    int64_t shortened = 0;  // of these, those that have lost blocks
};

// Before service begins. Throws std::exception when the storage is down; may be begun anew.
KeptAfterCrash keepWhatIsWhole(Instances& instances, BlockStore& blocks);

// Frees the containers that the catalog has on record as given up.
//
// The record goes when the bytes have gone, so what a crash or a disk that is not there leaves over
// is freed another time: at the next call, and at each start. Nothing else is ever deleted. Never
// throws: what cannot be freed stays on record, with a line in the log.
void freeGivenUp(Instances& instances, BlockStore& blocks);

}  // namespace dorvo
