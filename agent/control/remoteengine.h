// The engine of the resident agent, over its control port.
//
// One thread; each subscription has a thread of its own.
#pragma once

#include <json_spirit/json_spirit.h>

#include <optional>

#include "control/controlfile.h"
#include "engine/engine.h"

namespace dorvo::agent {

class RemoteEngine : public Engine {
public:
    // The resident that the control file names; null when nobody answers there with its proof, who
    // then has been asked for that alone. Throws AgentError when this user may not read the file.
    static std::unique_ptr<RemoteEngine> connect();

    // The process id of that resident; nothing when none answers.
    static std::optional<uint32_t> residentProcess();

    // Connects with each call.
    explicit RemoteEngine(ControlAddress address) : address_(std::move(address)) {}

    bool resident() const override { return true; }

    std::unique_ptr<Subscription> subscribe(EventSink sink) override;
    void submit(const JobDefinition& job) override;
    void tell(JobVerb verb, const std::string& id) override;
    void setServer(const std::string& host, uint16_t port, const std::string& name,
                   bool keepLogin) override;
    void setSnapshots(bool on) override;
    void login(const std::string& user, const std::string& password, const GiveUp& giveUp) override;
    void logout(const std::string& user, const GiveUp& giveUp) override;
    ImportedKeys importKeys(const std::wstring& file, const std::string& passphrase,
                            const std::string& user) override;

private:
    json_spirit::Object call(const std::string& name, const json_spirit::Object& body) const;

    const ControlAddress address_;
};

}  // namespace dorvo::agent
