#include "control/remoteengine.h"

#include <json_spirit/json_spirit.h>

#include <atomic>
#include <thread>

#include "base/text.h"
#include "control/controlclient.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

using json_spirit::Object;

// The port ends its polls after 25 seconds. Other requests wait for the job manager at most, or for
// the storage server.
constexpr std::chrono::seconds statusPatience(10);
constexpr std::chrono::seconds callPatience(180);
constexpr std::chrono::seconds pollPatience(60);

const char* nameOf(JobVerb verb) {
    switch (verb) {
        case JobVerb::start: return "start";
        case JobVerb::resume: return "resume";
        case JobVerb::pause: return "pause";
        case JobVerb::stop: return "stop";
        case JobVerb::remove: return "remove";
    }
    return "";
}

// Something of an answer; what is not there or of another type is the port's fault.
template <class Get>
auto from(const Object& answer, const char* name, const Get& get) {
    const auto found = answer.find(name);
    try {
        if (found != answer.end()) {
            return get(found->second);
        }
    } catch (const std::runtime_error&) {
        // As if it weren't there.
    }
    throw ResidentGone("The resident agent is of another version: start it anew");
}

std::string textFrom(const Object& answer, const char* name) {
    return from(answer, name, [](const json_spirit::Value& value) { return value.get_str(); });
}

int64_t numberFrom(const Object& answer, const char* name) {
    return from(answer, name, [](const json_spirit::Value& value) { return value.get_int64(); });
}

// The process that answers there with its proof; whoever else answers is no resident of ours.
std::optional<uint32_t> processAt(const ControlAddress& address) {
    try {
        const Object status = ControlClient(address).call("status", {}, statusPatience);
        if (textFrom(status, "proof") == address.proof) {
            return static_cast<uint32_t>(numberFrom(status, "pid"));
        }
    } catch (const AgentError&) {
        // Nobody, or somebody else.
    }
    return {};
}

class RemoteSubscription : public Engine::Subscription {
public:
    RemoteSubscription(const ControlAddress& address, Engine::EventSink sink)
        : client_(address), sink_(std::move(sink)), after_(poll(-1)) {
        thread_ = std::thread([this] { listen(); });
    }

    ~RemoteSubscription() override {
        ending_ = true;
        client_.close();
        thread_.join();
    }

private:
    // Hands on what comes after that number and gives the next.
    int64_t poll(int64_t after) {
        const Object answer = client_.call("events", {{"after", after}}, pollPatience);
        const auto texts = from(answer, "events", [](const json_spirit::Value& value) {
            std::vector<std::string> list;
            for (const json_spirit::Value& text : value.get_array()) {
                list.push_back(text.get_str());
            }
            return list;
        });
        const int64_t next = numberFrom(answer, "next");
        for (const std::string& text : texts) {
            sink_(text);
        }
        return next;
    }

    void listen() {
        try {
            for (;;) {
                after_ = poll(after_);
            }
        } catch (const AgentError&) {
            if (!ending_) {
                sink_({});
            }
        }
    }

    ControlClient client_;
    const Engine::EventSink sink_;
    int64_t after_;
    std::atomic<bool> ending_ = false;
    std::thread thread_;  // runs listen()
};

}  // namespace

std::unique_ptr<RemoteEngine> RemoteEngine::connect() {
    const auto address = ControlFile::read();
    return address && processAt(*address) ? std::make_unique<RemoteEngine>(*address) : nullptr;
}

std::optional<uint32_t> RemoteEngine::residentProcess() {
    const auto address = ControlFile::read();
    return address ? processAt(*address) : std::nullopt;
}

std::unique_ptr<Engine::Subscription> RemoteEngine::subscribe(EventSink sink) {
    return std::make_unique<RemoteSubscription>(address_, std::move(sink));
}

void RemoteEngine::submit(const JobDefinition& job) {
    json_spirit::Value definition;
    json_spirit::read_or_throw(job.text(), definition);
    call("submit", {{"definition", definition}});
}

void RemoteEngine::tell(JobVerb verb, const std::string& id) {
    call(nameOf(verb), {{"id", id}});
}

void RemoteEngine::setServer(const std::string& host, uint16_t port, const std::string& name,
                             bool keepLogin) {
    call("server", {{"host", host}, {"port", port}, {"name", name}, {"keeplogin", keepLogin}});
}

void RemoteEngine::setSnapshots(bool on) {
    call("snapshots", {{"enabled", on}});
}

void RemoteEngine::login(const std::string& user, const std::string& password, const GiveUp&) {
    call("login", {{"user", user}, {"password", password}});
}

void RemoteEngine::logout(const std::string& user, const GiveUp&) {
    call("logout", {{"user", user}});
}

ImportedKeys RemoteEngine::importKeys(const std::wstring& file, const std::string& passphrase,
                                      const std::string& user) {
    const Object answer =
        call("importkeys", {{"file", toUtf8(file)}, {"passphrase", passphrase}, {"user", user}});
    ImportedKeys keys;
    keys.user = textFrom(answer, "user");
    keys.beside =
        from(answer, "beside", [](const json_spirit::Value& value) { return value.get_uint64(); });
    return keys;
}

Object RemoteEngine::call(const std::string& name, const Object& body) const {
    return ControlClient(address_).call(name, body, callPatience);
}

}  // namespace dorvo::agent
