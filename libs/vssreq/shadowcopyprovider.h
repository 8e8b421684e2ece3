// Snapshots by the machine's volume shadow copy service.
//
// vssapi.dll is loaded on first use, from the system folder only: where it is missing, prepare
// fails with the loader's error. Needs an administrator and COM on the calling thread.
#pragma once

#include <memory>

#include "vssreq/snapshotprovider.h"

namespace dorvo {

std::unique_ptr<SnapshotProvider> makeShadowCopyProvider();

}  // namespace dorvo
