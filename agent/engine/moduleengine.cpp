#include "engine/moduleengine.h"

#include <mutex>

#include "base/log.h"
#include "base/logfile.h"
#include "base/text.h"
#include "engine/modulehost.h"
#include "engine/verbrefusal.h"
#include "job/pendingdrops.h"
#include "notify/jobnotifymanager.h"
#include "text/agenterror.h"
#include "text/agentlog.h"
#include "text/failuretext.h"
#include "text/singletons.h"

namespace dorvo::agent {
namespace {

// Registered with the notification manager while it lives.
class Observer : public Engine::Subscription, public JobNotifyObserver {
public:
    explicit Observer(Engine::EventSink sink) : JobNotifyObserver(nullptr), sink_(std::move(sink)) {
        singleton<JobNotifyManagerImpl>().registerObserver(this);
    }
    ~Observer() override { singleton<JobNotifyManagerImpl>().unregisterObserver(this); }

    bool deliver(const std::string& text) override {
        sink_(text);
        return true;
    }

private:
    Engine::EventSink sink_;
};

// The removal stops what runs by itself, but not a paused run, which the server would keep as one
// that goes on. It waits until the server has been told, or a server that does not answer been
// given up, and goes on in either case: the log has what came of it.
bool removeJob(JobManagerImpl& manager, const char* id) {
    if (!manager.stopJob(id)) {
        logLine(LogLevel::warning,
                std::string("Job ") + id + " is removed, but its run could not be cancelled.");
    }
    return manager.removeJob(id);
}

bool carryOut(JobManagerImpl& manager, JobVerb verb, const char* id) {
    switch (verb) {
        case JobVerb::start: return manager.startJob(id);
        case JobVerb::resume: return manager.resumeJob(id);
        case JobVerb::pause: return manager.pauseJob(id);
        case JobVerb::stop: return manager.stopJob(id);
        case JobVerb::remove: return removeJob(manager, id);
    }
    return false;
}

const char* participle(JobVerb verb) {
    switch (verb) {
        case JobVerb::start: return "started";
        case JobVerb::resume: return "resumed";
        case JobVerb::pause: return "paused";
        case JobVerb::stop: return "stopped";
        case JobVerb::remove: return "removed";
    }
    return "";
}

[[noreturn]] void refuseUnwrittenOptions() {
    throw AgentError(
        "The options file could not be written: see to the room on the disk and the rights in the "
        "data directory");
}

std::string theJob(const JobDefinition& job) {
    return "The job '" + toUtf8(job.name()) + "' ";
}

// The sessions, the passwords, and the runs that are at the server.
void bindStores(const std::string& server, Bind which) {
    if (server.empty()) {
        return;
    }
    if (!(PendingDrops::bindTo(server, which) && cookies().bindTo(server, which) &&
          passwords().bindTo(server, which))) {
        throw AgentError(
            "The sessions, the passwords or what is known of unfinished runs could not be written: "
            "see to the room on the disk and the rights in the data directory");
    }
}

}  // namespace

std::unique_ptr<Engine::Subscription> ModuleEngine::subscribe(EventSink sink) {
    return std::make_unique<Observer>(std::move(sink));
}

void ModuleEngine::submit(const JobDefinition& job) {
    JobManagerImpl& manager = ModuleHost::manager();
    std::lock_guard guard(manager.locker());
    if (const Job* const known = manager.job(job.id().c_str())) {
        if (const std::string refusal = refusalOfDefinition(known->state()); !refusal.empty()) {
            throw AgentError(theJob(job) + refusal);
        }
        if (known->definition().type() != job.type()) {
            throw AgentError(theJob(job) + "is of another type");
        }
    }
    if (!manager.submitJob(job.clone().release())) {
        throw AgentError(theJob(job) + "could not be saved: " + logSaysWhy());
    }
}

void ModuleEngine::tell(JobVerb verb, const std::string& id) {
    JobManagerImpl& manager = ModuleHost::manager();
    std::unique_lock guard(manager.locker());
    const Job* const job = manager.job(id.c_str());
    if (job == nullptr) {
        guard.unlock();
        // The module may have left a folder out that it could not load; that one can go, too.
        if (verb == JobVerb::remove && manager.removeJob(id.c_str())) {
            return;
        }
        throw AgentError("There is no job of the id '" + id +
                         "', or it could not be loaded: " + logSaysWhy());
    }
    const std::string name = theJob(job->definition());
    if (const std::string refusal = refusalOf(verb, job->state()); !refusal.empty()) {
        throw AgentError(name + refusal);
    }
    if (!carryOut(manager, verb, id.c_str())) {
        throw AgentError(name + "could not be " + participle(verb) + ": " + logSaysWhy());
    }
}

void ModuleEngine::setServer(const std::string& host, uint16_t port, const std::string& name,
                             bool keepLogin) {
    if (host.empty() || port == 0) {
        throw AgentError("A server is given as HOST:PORT");
    }
    if (!keepLogin) {
        // What an older version has kept tells of no server: it is the one set so far.
        bindStores(serverOfOptions(), Bind::unbound);
    }
    if (!options().setServerInfo(name.c_str(), host.c_str(), port)) {
        refuseUnwrittenOptions();
    }
    if (keepLogin) {
        bindStores(serverName(host, port), Bind::all);
    }
    // A backup had better wait for a server that is being restarted than fail its files.
    options().waitForServer(true);
}

void ModuleEngine::setSnapshots(bool on) {
    if (!options().enableSnapshot(on)) {
        refuseUnwrittenOptions();
    }
}

void ModuleEngine::login(const std::string& user, const std::string& password,
                         const GiveUp& giveUp) {
    accounts_.login(user, password, giveUp);
}

void ModuleEngine::logout(const std::string& user, const GiveUp& giveUp) {
    accounts_.logout(user, giveUp);
}

ImportedKeys ModuleEngine::importKeys(const std::wstring& file, const std::string& passphrase,
                                      const std::string& user) {
    std::string owner;
    if (!keys().importKey(user.c_str(), passphrase.c_str(), file.c_str(), owner)) {
        const DWORD error = GetLastError();
        throw AgentError(keyFailure(file, owner.empty() ? user : owner, error));
    }
    return {owner, keys().importedKeys(owner.c_str())};
}

}  // namespace dorvo::agent
