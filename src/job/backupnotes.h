// What the run of a backup tells its user besides its failures, and what it leaves out by its own
// rules: written to the run's notes, said at its end.
//
// Belongs to one start of a run and its work thread.
#pragma once

#include <windows.h>

#include <string>

#include "record/jobhistorynotes.h"
#include "source/jobvolume.h"
#include "source/owndata.h"
#include "vssreq/vssrequester.h"

namespace dorvo {

class BackupNotes {
public:
    // `document` is where the notes go; those that an earlier start has left there stay when `keep`
    // is set, because the list that they were made with does.
    BackupNotes(const std::wstring& document, bool keep);

    // Of the walk, each with a live path: whether an entry is left out as the agent's own; an entry
    // that is found; a folder that stands for another place and is not entered.
    bool leavesOut(const ComparablePath& path);
    void found(const std::wstring& path);
    void notEntered(const std::wstring& path, DWORD reparseTag);

    // Snapshots have been made: what is read without one all the same.
    void readLive(const VolumeMap& volumes, const VSSRequester& snapshots);

    // The walk is over, and a filter has kept all of its files out.
    void nothingPassed(const std::string& jobId);

    // Failures are logged: a run goes on without its notes.
    void save() { notes_.save(); }

private:
    JobHistoryNotes notes_;
    OwnData own_;
};

}  // namespace dorvo
