// Follows the run of a job, whoever runs it, until it is over.
#pragma once

#include <functional>
#include <string>

#include "data/liverecord.h"
#include "jobdef/jobdefinition.h"
#include "run/runevents.h"
#include "run/runreporter.h"

namespace dorvo::agent {

struct RunEnd {
    ExitCode code = exitDone;
    JobActivity record{};  // as it was seen last
    // Where the run is not over, or its end was not seen: why it is not followed any more. Nothing
    // was then reported of its end.
    std::string lost;
};

class RunFollower {
public:
    // All are borrowed. `reporter` is shown the record at each announcement and twice a second. The
    // run is that of the first look.
    RunFollower(const JobDefinition& job, RunEvents& events, RunReporter& reporter)
        : job_(job), events_(events), reporter_(reporter) {}

    // One look. True when the run is over or cannot be followed any more; end() is then its end.
    bool look(uint64_t nowMs);
    const RunEnd& end() const { return end_; }

    // Looks until that. Calls `interrupted` whenever the event, which is borrowed, is signaled.
    RunEnd follow(HANDLE interrupt, const std::function<void()>& interrupted);

private:
    RecordLook readRecord();
    std::string loss(RecordLook seen, bool ended, bool removed) const;

    const JobDefinition& job_;
    RunEvents& events_;
    RunReporter& reporter_;
    RunEnd end_;
};

}  // namespace dorvo::agent
