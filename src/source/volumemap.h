// The volume files of a job as a map, and the way from a source to its snapshot and back.
#pragma once

#include <string>
#include <string_view>

#include "source/jobvolume.h"

namespace dorvo {

// Fills the map anew from the job's volume files. A malformed file is logged and left out.
void loadVolumes(const char* jobId, VolumeMap& volumes);

// Empties the map. For the end codes 1, 7, 9 and 10 the volume files are deleted first; with any
// other they stay, so that a later run goes on with the same snapshots.
void clearVolumes(VolumeMap& volumes, const char* jobId, int endCode);

// True when the record's file was there and is deleted.
bool removeVolumeFile(const JobVolume& volume, const char* jobId);

// The source's path on the snapshot; the source itself while there is none. The source must lie on
// the volume.
std::wstring toShadowPath(std::wstring_view source, std::wstring_view volumePath,
                          std::wstring_view shadowPath);

// The live path of an entry that was found below `walked`, which stands for the live `source`.
std::wstring toLivePath(std::wstring_view entry, std::wstring_view walked,
                        std::wstring_view source);

}  // namespace dorvo
