// An engine of the tests: keeps what it is told, and announces what the test says.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "engine/engine.h"

namespace dorvo::agent {

class FakeEngine : public Engine {
public:
    explicit FakeEngine(bool resident = true) : resident_(resident) {}

    void say(const std::string& text) {
        if (sink_) {
            sink_(text);
        }
    }

    bool resident() const override { return resident_; }
    std::unique_ptr<Subscription> subscribe(EventSink sink) override {
        sink_ = std::move(sink);
        return std::make_unique<Subscription>();
    }
    void submit(const JobDefinition& job) override { submitted.push_back(job.id()); }
    void tell(JobVerb verb, const std::string& id) override { told.emplace_back(verb, id); }
    void setServer(const std::string&, uint16_t, const std::string&, bool) override {}
    void setSnapshots(bool) override {}
    void login(const std::string&, const std::string&, const GiveUp&) override {}
    void logout(const std::string&, const GiveUp&) override {}
    ImportedKeys importKeys(const std::wstring&, const std::string&, const std::string&) override {
        return {};
    }

    std::vector<std::string> submitted;
    std::vector<std::pair<JobVerb, std::string>> told;

private:
    bool resident_;
    EventSink sink_;
};

}  // namespace dorvo::agent
