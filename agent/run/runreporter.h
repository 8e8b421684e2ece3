// Tells of a run while it goes on, and how it ended. One thread; times are milliseconds of any
// steady clock.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "data/runresult.h"
#include "jobdef/jobdefinition.h"
#include "record/jobactivity.h"
#include "text/terminal.h"

namespace dorvo::agent {

class RunReporter {
public:
    RunReporter() = default;
    virtual ~RunReporter() = default;
    RunReporter(const RunReporter&) = delete;
    RunReporter& operator=(const RunReporter&) = delete;

    // Shows the record as it is now.
    virtual void show(const JobActivity& record, uint64_t nowMs) = 0;
    // The run has met an error: why it waits, if it waits next.
    virtual void reason(std::string text) = 0;
    // The run is over.
    virtual void finish(const RunResult& result) = 0;
};

// For people, or as one JSON object a line. Both are borrowed.
std::unique_ptr<RunReporter> makeRunReporter(Terminal& terminal, const JobDefinition& job,
                                             bool json);

}  // namespace dorvo::agent
