// The job module in this process, for the one job that a command runs.
//
// Opening takes the data directory (see DataOwner) and the log file "log" in it. Jobs that the
// module would start by itself (a schedule, an interrupted run) stay as they are while a command
// runs another one: they are locked as soon as they are loaded. The destructor closes the module,
// which pauses what still runs.
#pragma once

#include <string>

#include "engine/dataowner.h"
#include "job/jobmanager.h"

namespace dorvo::agent {

class ModuleHost {
public:
    // Owns the data directory from now on; nothing is opened yet, so that a command can look at the
    // jobs while nobody changes them. Throws AgentError.
    ModuleHost() = default;
    ~ModuleHost();
    ModuleHost(const ModuleHost&) = delete;
    ModuleHost& operator=(const ModuleHost&) = delete;

    // Opens the module and locks every job but this one. Throws AgentError.
    void open(const std::string& jobId);

    static JobManagerImpl& manager();

private:
    DataOwner owner_;
    bool open_ = false;
};

}  // namespace dorvo::agent
