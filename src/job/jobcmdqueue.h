// Commands for jobs from threads that must not block: one thread carries them out, one at a time.
//
// A job has at most one pending command, the latest. The smallest id in byte order goes first, not
// the oldest command; ids that differ in case are different here. Commands: "start", "stop",
// "pause", "resume", "do_schedule"; others are dropped. Results are not reported.
#pragma once

#include <windows.h>

#include <map>
#include <string>

#include "base/api.h"
#include "base/critical_section.h"
#include "base/handle.h"

namespace dorvo {

// Who carries the commands out: the job manager. Any thread; each may take its time.
class JobCommands {
public:
    virtual bool startJob(const char* id) = 0;
    virtual bool stopJob(const char* id) = 0;
    virtual bool pauseJob(const char* id) = 0;
    virtual bool resumeJob(const char* id) = 0;
    virtual bool resumeJobAfterError(const char* id) = 0;
    virtual bool command(const char* text, const char* id) = 0;

protected:
    ~JobCommands() = default;
};

class DORVO_JOB_API JobCmdQueue {
public:
    // The queue of the process, made with its thread on first use. The host stops it before it
    // closes the job manager; it is never destroyed, for at the process's end its thread is gone.
    static JobCmdQueue* instance();

    // Who carries out the commands of all queues from now on, borrowed until another one does.
    // Null: they are dropped.
    static void carriedOutBy(JobCommands* jobs);

    // Without a thread (which is logged) or events (which throws std::system_error) nothing runs.
    JobCmdQueue();
    ~JobCmdQueue() { stop(); }
    JobCmdQueue(const JobCmdQueue&) = delete;
    JobCmdQueue& operator=(const JobCmdQueue&) = delete;

    // Any thread, any lock held but the queue's own; does not block.
    void add(std::string id, std::string command);
    // Adds a "resume" that leaves alone what the user has paused meanwhile.
    void addResumeAfterError(std::string id);
    // Ends and joins the thread after the command in progress; pending commands are forgotten and
    // later ones not carried out. Idempotent. Not with the job manager's lock held.
    void stop();

private:
    struct Command {
        std::string text;
        bool afterError = false;
    };

    static DWORD WINAPI dispatchThread(void* self);
    DWORD dispatch();
    void put(std::string id, Command command);
    void executeFirst();
    static void execute(const std::string& id, const Command& command);

    CriticalSection lock_;                    // guards pending_
    std::map<std::string, Command> pending_;  // by the job's id
    KernelHandle semaphore_;                  // released once an addition
    KernelHandle exitEvent_;                  // auto reset
    CriticalSection stopLock_;                // guards thread_
    HANDLE thread_ = nullptr;
};

}  // namespace dorvo
