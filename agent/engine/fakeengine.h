// An engine of the tests: keeps what it is told, announces what the test says, and refuses what
// concerns "bad". Any thread.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "engine/engine.h"
#include "text/agenterror.h"

namespace dorvo::agent {

class FakeEngine : public Engine {
public:
    explicit FakeEngine(bool resident = true) : resident_(resident) {}

    void say(const std::string& text) {
        if (sink_) {
            sink_(text);
        }
    }

    // What it was told since the last call.
    std::string takeNote() {
        const std::lock_guard guard(lock_);
        return std::exchange(note_, {});
    }

    // Called within each login, several at once.
    std::function<void(const GiveUp& giveUp)> onLogin;

    bool resident() const override { return resident_; }
    std::unique_ptr<Subscription> subscribe(EventSink sink) override {
        sink_ = std::move(sink);
        return std::make_unique<Subscription>();
    }
    void submit(const JobDefinition& job) override { note("submit " + job.text(), job.id()); }
    void tell(JobVerb verb, const std::string& id) override {
        note("tell " + std::to_string(static_cast<int>(verb)) + " " + id, id);
    }
    void setServer(const std::string& host, uint16_t port, const std::string& name,
                   bool keepLogin) override {
        note("server " + host + " " + std::to_string(port) + " " + name +
             (keepLogin ? " with its logins" : ""));
    }
    void setSnapshots(bool on) override { note(on ? "snapshots on" : "snapshots off"); }
    void login(const std::string& user, const std::string& password,
               const GiveUp& giveUp) override {
        if (onLogin) {
            onLogin(giveUp);
        }
        note("login " + user + " " + password, user);
    }
    void logout(const std::string& user, const GiveUp&) override { note("logout " + user); }
    ImportedKeys importKeys(const std::wstring& file, const std::string& passphrase,
                            const std::string& user) override {
        note("import " + toUtf8(file) + " " + passphrase + " " + user);
        return {"alice", 3};
    }

private:
    void note(const std::string& text, const std::string& about = {}) {
        if (about == "bad") {
            throw AgentError("There is no \"bad\"", exitUsage);
        }
        const std::lock_guard guard(lock_);
        note_ += text;
    }

    const bool resident_;
    EventSink sink_;
    std::mutex lock_;  // guards note_
    std::string note_;
};

}  // namespace dorvo::agent
