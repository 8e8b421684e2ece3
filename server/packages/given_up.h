// Frees the containers that the catalog has on record as given up.
//
// The record goes when the bytes have gone, so what a crash or a disk that is not there leaves over
// is freed another time: at the next call, and at each start. Nothing else is ever deleted. Any
// thread; never throws: what cannot be freed stays on record, with a line in the log.
#pragma once

#include "catalog/catalog.h"
#include "packages/block_store.h"

namespace dorvo {

void freeGivenUp(Catalog& catalog, BlockStore& blocks);

}  // namespace dorvo
