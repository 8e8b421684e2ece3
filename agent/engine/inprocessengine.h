// The job module in this process, for the one job that a command concerns.
//
// Owns the data directory while it lives. The module is opened by the first verb on a job; what it
// would start by itself of other jobs stays as it is, for they are locked. The destructor closes
// the module, which pauses what still runs. Used and destroyed on the thread that made it.
#pragma once

#include "engine/moduleengine.h"
#include "engine/modulehost.h"

namespace dorvo::agent {

class InProcessEngine : public ModuleEngine {
public:
    // Throws AgentError when another process keeps the data directory, see DataOwner.
    explicit InProcessEngine(const DataOwner::Patience& patience)
        : host_(DataOwner::Role::command, patience) {}

    void submit(const JobDefinition& job) override;
    void tell(JobVerb verb, const std::string& id) override;

private:
    ModuleHost host_;
};

}  // namespace dorvo::agent
