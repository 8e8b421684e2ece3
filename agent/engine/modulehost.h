// The job module in this process, opened and closed with the data directory and the log file.
//
// The destructor closes the module, which pauses what still runs. Made and destroyed on one thread,
// once a process.
#pragma once

#include <string>
#include <vector>

#include "engine/dataowner.h"
#include "face/jobmodule.h"
#include "job/jobmanager.h"

namespace dorvo::agent {

class ModuleHost {
public:
    // Owns the data directory from now on (see DataOwner); nothing is opened yet, so that a command
    // can look at the jobs while nobody changes them. Throws AgentError.
    ModuleHost(DataOwner::Role role, const DataOwner::Patience& patience)
        : owner_(role, patience) {}
    ~ModuleHost();
    ModuleHost(const ModuleHost&) = delete;
    ModuleHost& operator=(const ModuleHost&) = delete;

    // Opens the log file "log" in the data directory and the module with all its jobs. Throws
    // AgentError.
    void open(DueTimes dueTimes = DueTimes::kept);
    // The same for one job, which runs when it is told to: due times start nothing. Others, whose
    // interrupted runs the module would resume by itself, stay as they are: they are locked as soon
    // as they are loaded. Where the module is open already, the job is unlocked.
    void open(const std::string& jobId);

    static JobManagerImpl& manager();

private:
    DataOwner owner_;
    bool open_ = false;
    std::vector<std::string> unlocked_;  // ids
};

}  // namespace dorvo::agent
