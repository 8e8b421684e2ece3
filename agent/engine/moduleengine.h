// The verbs on the job module that this process has opened, and on its stores.
//
// The settings verbs need no opened module. Any thread, several at once; logging in and out waits
// for the server's answer.
#pragma once

#include "engine/accounts.h"
#include "engine/engine.h"

namespace dorvo::agent {

class ModuleEngine : public Engine {
public:
    bool resident() const override { return false; }
    // Events come on the dispatcher's thread.
    std::unique_ptr<Subscription> subscribe(EventSink sink) override;
    void submit(const JobDefinition& job) override;
    // Does not wait for what it has asked for.
    void tell(JobVerb verb, const std::string& id) override;
    void setServer(const std::string& host, uint16_t port, const std::string& name,
                   bool keepLogin) override;
    void setSnapshots(bool on) override;
    void login(const std::string& user, const std::string& password, const GiveUp& giveUp) override;
    void logout(const std::string& user, const GiveUp& giveUp) override;
    ImportedKeys importKeys(const std::wstring& file, const std::string& passphrase,
                            const std::string& user) override;

    Accounts& accounts() { return accounts_; }

private:
    Accounts accounts_;
};

}  // namespace dorvo::agent
