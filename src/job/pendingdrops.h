// Runs of a backup job that have ended without being completed, while their storage could not be
// told to drop them: they are told later.
//
// Each is a file in the job's folder "drops", named as the run's instance. Its text is the folder
// of the backups, empty for the web service, since the definition may change meanwhile. Work
// thread, or while no run is under way. Failures are logged.
#pragma once

#include <functional>
#include <string>

namespace dorvo {

struct PendingDrop {
    std::string instanceId;
    std::wstring location;  // of local backups; empty: the web service
};

class PendingDrops {
public:
    explicit PendingDrops(std::string jobId) : jobId_(std::move(jobId)) {}

    // After a storage has failed to drop the run with that error: keeps it, unless trying again is
    // of no use. On the disk when it returns.
    void failed(const PendingDrop& drop, unsigned long error) const;
    void add(const PendingDrop& drop) const;

    // Has them dropped, one after the other, up to the first that still cannot be: `drop` answers
    // false with the last error.
    void tell(const std::function<bool(const PendingDrop&)>& drop) const;

private:
    std::wstring folder() const;

    std::string jobId_;
};

}  // namespace dorvo
