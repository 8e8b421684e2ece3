// The runs of a backup job that their storage is to drop unless they are completed.
//
// A run is noted before its storage hears of it, and forgotten when it is completed, dropped, or
// refused for good: whenever the process dies, what lies at a storage is on record. So each note is
// told but that of the run which the job's own record has as unfinished. A server's refusal counts
// once an hour, and is believed when it has counted fifteen times: a gate on the way may have said
// it, and nothing is asked for ever.
//
// A note is a file in the job's folder "drops", named as the run's instance. Its text is where the
// run is stored, since definition and options may change meanwhile: the folder of the backups, or
// "http://" and the name of the server; empty, of an older version, for whichever is set. A second
// line counts how often a server has refused to drop the run. When the
// job is removed they move to a folder of its id in the data directory's "drops", where its
// definition says whose they were; on a disk without room for that they stay in the job's.
// Any thread. Failures are logged and leave the last error.
#pragma once

#include <windows.h>

#include <jobdef/jobdefinition.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/api.h"
#include "settings/serverbinding.h"

namespace dorvo {

struct PendingDrop {
    std::string instanceId;
    std::wstring location;    // of local backups; empty: the web service
    std::string server = {};  // of the web service, a serverName(); empty: whichever is set
    unsigned refusals = 0;    // of the web service, so far
};

class PendingDrops {
public:
    explicit PendingDrops(std::string jobId);
    // Of all job directories, then those that removed jobs have handed on.
    static std::vector<PendingDrops> all();
    // Has the web service's runs of all jobs belong to that server from now on: all of them, or
    // those that name none.
    static DORVO_JOB_API bool bindTo(const std::string& server, Bind which);

    // Notes a run, on the disk when it returns, and gives what is on record of it: an earlier note
    // stays. Nothing when it can be neither written nor read.
    std::optional<PendingDrop> note(const PendingDrop& run) const;
    bool forget(const std::string& instanceId) const;

    // Has each run dropped that has ended: `drop` answers false with the last error where it still
    // cannot be. One thread at a time.
    void tell(const std::function<bool(const PendingDrop&)>& drop) const;

    // The job goes, with its folder, and its record has forgotten its run. On failure notes and
    // definition stay in the folder "drops" of the job's, see stay().
    bool handOn(const JobDefinition& definition) const;
    // The same for a directory of which no job was made, unless its definition is another job's.
    bool handOn() const;

    bool any() const;
    // Whether the run's note is there, readable or not.
    bool holds(const std::string& instanceId) const;
    // Whether these are a removed job's that could not be handed on.
    bool stay() const;
    const std::string& jobId() const { return jobId_; }
    // Where the definition is that says whose runs they are.
    const std::wstring& home() const { return home_; }

private:
    enum class Stand { unfinished, completed, toDrop };

    PendingDrops(std::string jobId, std::wstring home, std::wstring folder);
    Stand standOf(const std::string& instanceId) const;
    bool keepHere() const;
    bool write(const PendingDrop& run) const;
    bool believes(const PendingDrop& told, DWORD error) const;
    void tidyUp() const;

    std::string jobId_;
    std::wstring home_;
    std::wstring folder_;  // empty when there is none
};

// Deletes the directory of a removed job, which would come back with what is left of it. What
// somebody looks at in passing, as who tells of its runs does, is waited for. Notes of runs to be
// dropped stay, with the definition. False, logged.
bool removeJobDirectory(const std::string& id);

}  // namespace dorvo
