// Whether the snapshot of a volume can still be read: the system deletes one whose area is full.
#pragma once

#include "source/jobvolume.h"

namespace dorvo {

// False, with a log line, when the volume has a snapshot that does not answer any more. Keeps the
// last error.
bool isSnapshotThere(const JobVolume& volume);

}  // namespace dorvo
