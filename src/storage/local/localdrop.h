// Takes away what runs have left in a place.
#pragma once

#include <string>

#include "storage/local/localplace.h"

namespace dorvo {

// Deletes an instance, if it is there. False leaves the last error: 5023 for a completed one, 13
// for one whose document cannot be read, as it may be completed; 32 while another process writes to
// it.
bool dropInstance(const LocalPlace& place, const std::string& id);

// Deletes the list of awaited files, which an instance has only while its run lasts. Logs a
// failure.
void dropAwaited(const LocalPlace& place, const std::string& id);

// Before a new run of the job begins: the instances of runs that were never completed go, since a
// job has one run at a time, and what the last completed one kept only while its run lasted. A
// failure is logged; the next run tries again.
void sweepPlace(const LocalPlace& place, const LocalPlace::Newest& newest);

}  // namespace dorvo
