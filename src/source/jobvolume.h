// The volumes that hold a job's sources: found for the sources, kept in files of the job's
// directory (docs/formats/volume-file.md), which let an interrupted run find its snapshots again,
// and the way from a source to its snapshot and back.
//
// Records are values; a map is of one thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dorvo {

// One volume that holds sources of a job, with the snapshot it is read from.
struct JobVolume {
    int32_t index = -1;  // from 1, in the order in which volumes were met; names the volume file
    int32_t state = 0;
    GUID snapshotSetId{};
    GUID snapshotId{};
    std::wstring path;               // the mount point, with its trailing backslash
    std::wstring shadowPath;         // the snapshot's device path, empty without a snapshot
    int64_t creationTimestamp = -1;  // of the snapshot, as its requester reports it
    std::vector<std::wstring> sources;

    // Writes the volume file of the job; makes its folder. False is logged; a null, empty or
    // impossible id writes nothing.
    bool save(const char* jobId) const;
};

// By mount point. Shared, so that a record in use survives a map that is filled anew.
using VolumeMap = std::map<std::wstring, std::shared_ptr<JobVolume>>;

// Groups a job's sources by the volume that holds them.
//
// The map is filled anew: one JobVolume for each mount point, numbered from 1 in the order in which
// they are met, with its sources in their given order. A source whose volume cannot be found is
// logged and left out.
class SourceClassifier {
public:
    void operator()(const std::vector<std::wstring>& sources, VolumeMap& volumes) const;
};

// <job directory>\act\vol. False, with the last error, for a null, empty or impossible id.
bool volumeDirectory(const char* jobId, std::wstring& path);

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

// Whether the snapshot of a volume can still be read: the system deletes one whose area is full.
// False, with a log line, when the volume has a snapshot that does not answer any more. Keeps the
// last error.
bool isSnapshotThere(const JobVolume& volume);

}  // namespace dorvo
