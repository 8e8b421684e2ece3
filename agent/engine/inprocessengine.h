// The job module in this process, for the one job that a command concerns.
//
// Owns the data directory while it lives. The module is opened by the first verb on a job; what it
// would start by itself of other jobs stays as it is, for they are locked. The destructor closes
// the module, which pauses what still runs. Used and destroyed on the thread that made it.
#pragma once

#include "engine/moduleengine.h"
#include "engine/modulehost.h"

namespace dorvo::agent {

class InProcessEngine : public Engine {
public:
    // Throws AgentError when another process keeps the data directory, see DataOwner.
    explicit InProcessEngine(HANDLE giveUp = nullptr, DWORD patienceMs = 0)
        : host_(giveUp, patienceMs) {}

    bool resident() const override { return false; }
    std::unique_ptr<Subscription> subscribe(EventSink sink) override;
    void submit(const JobDefinition& job) override;
    // Nobody else would see them through: a stop and a removal are waited for.
    void tell(JobVerb verb, const std::string& id) override;
    void setServer(const std::string& host, uint16_t port, const std::string& name) override;
    void setSnapshots(bool on) override;
    void login(const std::string& user, const std::string& password) override;
    void logout(const std::string& user) override;
    ImportedKeys importKeys(const std::wstring& file, const std::string& passphrase,
                            const std::string& user) override;

private:
    ModuleHost host_;
    ModuleEngine engine_;
};

}  // namespace dorvo::agent
