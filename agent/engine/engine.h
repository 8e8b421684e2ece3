// The job module as commands use it, wherever it runs: in the resident agent, or in this process.
//
// Every operation throws AgentError with a sentence for the user when it fails; it is then as if it
// had not been asked for. Ids are those of definitions on disk; listings read the disk themselves
// and need no engine. One thread uses an engine; events come on a thread of the engine's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "jobdef/jobdefinition.h"

namespace dorvo::agent {

// What a job can be told. `start` goes on with a paused run, `stop` cancels a run, `remove` cancels
// the run, a paused one too, and deletes the job with its history.
enum class JobVerb { start, resume, pause, stop, remove };

struct ImportedKeys {
    std::string user;   // whose they are
    size_t beside = 0;  // how many stand beside the machine's own
};

// Asked about once a second by what waits for the storage server: true ends the wait. Any thread.
using GiveUp = std::function<bool()>;

class Engine {
public:
    // Events come for as long as it lives. Its destructor waits for a call in progress.
    class Subscription {
    public:
        Subscription() = default;
        virtual ~Subscription() = default;
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;
    };

    // Gets the JSON text of each event of any job, in order, or "" once when no more will come
    // because the process that runs the jobs has ended. Puts it aside and returns.
    using EventSink = std::function<void(const std::string& text)>;

    Engine() = default;
    virtual ~Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // True when another process runs the jobs, which goes on when this one ends.
    virtual bool resident() const = 0;

    // From now on: what happens after the call is not missed.
    virtual std::unique_ptr<Subscription> subscribe(EventSink sink) = 0;

    // Adds the job or renews its definition, which is refused while a run is under way.
    virtual void submit(const JobDefinition& job) = 0;
    // Tells a job; what comes of it shows in its record and its events.
    virtual void tell(JobVerb verb, const std::string& id) = 0;

    // Sessions and passwords stay with the server that they were made for; `keepLogin` gives all
    // of them to this one.
    virtual void setServer(const std::string& host, uint16_t port, const std::string& name,
                           bool keepLogin) = 0;
    virtual void setSnapshots(bool on) = 0;
    // Both wait for the server's answer unless they are told to give up.
    virtual void login(const std::string& user, const std::string& password,
                       const GiveUp& giveUp) = 0;
    virtual void logout(const std::string& user, const GiveUp& giveUp) = 0;
    // `file` is absolute; `user` is empty when whosever keys they are may be taken.
    virtual ImportedKeys importKeys(const std::wstring& file, const std::string& passphrase,
                                    const std::string& user) = 0;
};

}  // namespace dorvo::agent
