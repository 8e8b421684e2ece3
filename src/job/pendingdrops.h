// Runs of a backup job that have ended without being completed, while their storage could not be
// told to drop them: they are told later.
//
// Each is a file in the job's folder "drops", named as the run's instance. Its text is where the
// run was stored, since definition and options may change meanwhile: the folder of the backups, or
// "http://" and the name of the server; empty, of an older version, for whichever is set. When the
// job is removed they move to a folder of its id in the data directory's "drops", where its
// definition says whose they were. Any thread. Failures are logged.
#pragma once

#include <jobdef/jobdefinition.h>

#include <functional>
#include <string>
#include <vector>

#include "base/api.h"
#include "settings/serverbinding.h"

namespace dorvo {

struct PendingDrop {
    std::string instanceId;
    std::wstring location;    // of local backups; empty: the web service
    std::string server = {};  // of the web service, a serverName(); empty: whichever is set
};

class PendingDrops {
public:
    explicit PendingDrops(std::string jobId);
    // Those that removed jobs have handed on, in one of the folders that handedOn() gives.
    explicit PendingDrops(const std::wstring& folder);
    static std::vector<std::wstring> handedOn();
    // Has the web service's drops of all jobs told to that server from now on: all of them, or
    // those that name none.
    static DORVO_JOB_API void bindTo(const std::string& server, Bind which);

    // After a storage has failed to drop the run with that error: keeps it, unless trying again is
    // of no use. On the disk when it returns.
    void failed(const PendingDrop& drop, unsigned long error) const;
    void add(const PendingDrop& drop) const;
    // The run goes on after all.
    void forget(const std::string& instanceId) const;

    // Has each of them dropped: `drop` answers false with the last error where it still cannot be.
    // Whoever comes while another thread of the process tells leaves it to that one.
    void tell(const std::function<bool(const PendingDrop&)>& drop) const;

    // The job goes, with its folder.
    void handOn(const JobDefinition& definition) const;

    bool any() const;

private:
    std::string jobId_;
    std::wstring folder_;  // empty when there is none
};

}  // namespace dorvo
