// Tells of a run while it goes on, and how it ended.
//
// For people: a line that is redrawn on a terminal, plain lines otherwise. Plain lines are changes
// of state, the beginning of each wait for the storage, and the progress every ten seconds. Each
// item that failed goes to the error stream.
//
// For scripts: one JSON object a line. While it runs, {"id", "name", "state", "percent", "bytes",
// "totalBytes", "files", "fileCount", "speed", "remainTime", "file"} at each change of state and at
// most twice a second, with "reason", "since" and "until" where it waits, empty where they are not
// known, and again when "until" becomes known; at the end {"id", "name", "summary": {...}}.
//
// One thread; times are milliseconds of any steady clock.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "jobdef/jobdefinition.h"
#include "record/jobactivity.h"
#include "run/runresult.h"
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
    // The run is over.
    virtual void finish(const RunResult& result) = 0;
};

// For people, or as one JSON object a line. Both are borrowed.
std::unique_ptr<RunReporter> makeRunReporter(Terminal& terminal, const JobDefinition& job,
                                             bool json);

}  // namespace dorvo::agent
