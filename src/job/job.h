// A job: its definition, its activity record, the commands, and the one thread on which it runs.
//
// A job belongs to the job manager, whose lock covers every operation of the public part that
// changes something; reading the status needs no lock. What a command does in each state is the
// table of statetable.cpp. What runs is the subclass's run(), on the job's work thread: a Transfer.
// Commands reach it as a code and an event, which it looks at in pollEvent().
//
// A run: startTask() starts the thread and blocks until run() has called setStartEvent() or has
// ended, while the manager's lock is held. So run() sets the state `starting`, calls
// setStartEvent(), and needs the manager's lock for neither. Its last store is the final state.
//
// A final class calls shutdown() in its destructor, so that its run has ended before its members
// go.
#pragma once

#include <windows.h>

#include <jobdef/jobdefinition.h>
#include <json_spirit/json_spirit.h>

#include <atomic>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>

#include "base/api.h"
#include "base/handle.h"
#include "job/errorresumetimer.h"
#include "job/jobhost.h"
#include "job/lifecycle.h"
#include "record/jobactivityhandle.h"

namespace dorvo {

class DORVO_JOB_API Job {
public:
    // Opens the activity record, made new when there is none: the job's directory exists. Without a
    // record the state is `none` and every command is refused. Throws std::system_error when the
    // system has no event left.
    explicit Job(std::unique_ptr<JobDefinition> definition);
    // Ends the run, joins its thread and, for a removed job, deletes the job's directory.
    virtual ~Job();
    // Takes up what the record says, a run that its process has left above all; subclasses plan the
    // schedule. Changes nothing of a run under way. False when the job can't be loaded.
    virtual bool init() = 0;
    // Asks a running job to stop, and has a paused run dropped at its storage, on a thread of the
    // job; does not wait for the end of the run.
    virtual bool stop() = 0;
    // Asks a running job to pause, or parks an idle one; `manual` when the user asks. A pause that
    // the job made itself becomes the user's, and is then not resumed after an error. False when
    // there is no record or the thread could not be told.
    virtual bool pause(bool manual);

    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    // Begins a run, or goes on with the paused one. True when the job runs already, and also when
    // the thread could not be made: then the run has failed, or is still paused, and observers were
    // told. False when the state, a lock or a removal is against it.
    bool start();
    // Goes on with the paused run. True when the job runs already; a pause that its run has not
    // seen yet is taken back then.
    bool resume();
    // The same for a run that an error has paused: changes nothing of what the user has paused.
    bool resumeAfterError();
    // Stops the job and starts the thread that takes it out of the manager once its run has ended.
    bool remove();
    // True when no run is left within the time (milliseconds, INFINITE).
    bool wait(DWORD timeoutMs) const;
    // Has the job carry out what the text names; false when it knows nothing of it.
    bool command(const char* text) { return commandimpl(text); }
    // Refuses starts while true. Returns the flag.
    bool lock(bool locked) { return locked_ = locked; }

    // Who keeps the job from now on; borrowed. Without a host a job cannot be taken out by its
    // remove thread: who owns it destroys it.
    void host(JobHost& host) { host_ = &host; }

    const JobDefinition& definition() const { return *definition_; }
    // Takes the definition, once what is left of a run has ended. Only in a state from which a run
    // begins. Not null.
    void definition(std::unique_ptr<JobDefinition> definition);

    // Status, from the record; zero or empty without one.
    int32_t state() const;
    int32_t lastRunState() const;
    // year*10000 + month*100 + day and hour*10000 + minute*100 + second, local; 0, 0 for never.
    void lastRunTime(int& date, int& time) const;
    void nextRunTime(int& date, int& time) const;
    int progress() const;
    int fileProgress() const;
    uint64_t speed() const;       // bytes a second
    uint64_t remainTime() const;  // seconds
    std::wstring file() const;
    // True while run() executes.
    bool running() const { return running_; }
    // Whether the job goes for good, with its directory.
    bool removing() const { return removing_; }
    // What the schedule of a backup says; anything but a backup runs once, and by hand.
    bool isManual() const;
    bool isRunOnce() const;
    // Adds "id" and "state", and what is worth telling of a run under way.
    void toJSON(json_spirit::Object& object) const;

protected:
    // The body of the work thread; its result is the thread's exit code.
    virtual unsigned long run() = 0;
    virtual bool commandimpl(const char* text);
    // Whether an error is one of the network, after which another try may succeed.
    virtual bool is_network_error(unsigned long code);
    // A start was asked for, by a schedule or otherwise; `refused` when nothing came of it.
    virtual void startAsked(bool) {}
    // A stop or a pause was asked for; for what neither looks at the stop event nor polls. Any
    // thread, under the lock that orders commands.
    virtual void stopAsked() {}
    // A run that its process has left ends now, cancelled or failed: the storage may have dropped
    // it. Ends it on record, too.
    virtual void endLeft(JobState end);

    // Starts the work thread, after the former one has ended. See above for what it waits for.
    bool startTask();
    // Releases the starter; called once by run(). False with the thread's last error.
    bool setStartEvent();
    // Waits for a command and turns it into a change of state. False when run() has to leave.
    bool pollEvent(unsigned long timeoutMs);
    // Gives the work thread a command; a later one takes the place of one not yet seen.
    bool emit(JobCommand command);
    // Waits for the end of the run and lets go of its thread. Not on the work thread.
    bool join();
    // Ends the run and disarms the timer for good; the record of a removed job forgets its run.
    // Idempotent; for destructors.
    void shutdown();

    bool notify_state();
    bool notify_state(JobState state);
    bool notify_error(unsigned long code);
    // The words for an error code of whatever kind.
    std::string reasonText(unsigned long code) const;
    JobHost* host() const { return host_; }
    // Of the run on record, empty when there is none.
    std::string instanceText() const;
    // Writes one line about the job, as if its state were the given one.
    void dumpState(std::ostream& os, JobState state) const;
    static void toDateTime(const FILETIME& time, int& date, int& timeOfDay);

    // Resumes the job after the time, unless the user has paused it. Any thread.
    bool armResume(uint64_t delayMs = ErrorResumeTimer::firstDelayMs);
    void disarmResume();

    // Signalled (manual reset) while a stop or pause is wanted: for the interrupter of long
    // operations, which asks without taking the command away. Lives as long as the job.
    HANDLE stopEvent() const { return stopEvent_.get(); }
    // The state on record, and the way to move it.
    Lifecycle& lifecycle() { return lifecycle_; }
    JobActivityHandle& activity() { return activity_; }
    const JobActivityHandle& activity() const { return activity_; }

private:
    friend class Transfer;  // the work thread's half of a job
    struct Removal;

    static DWORD WINAPI run_wrapper(void* job);
    static DWORD WINAPI remove_thread(void* removal);

    static const char* commandEvent(JobCommand command);

    bool startAllowed() const;
    bool setOff(JobRequest request);
    bool goOn();
    bool beginRun();
    bool createInstance();
    void takeBackPause();
    void endWithoutThread(unsigned long code);
    void takeUpLeft();
    bool tellStop();
    bool dropPausedRun();
    bool tellPause(bool manual);
    void keepPaused();
    bool remove_impl();

    JobHost* host_ = nullptr;
    std::unique_ptr<JobDefinition> definition_;
    // Keeps commands of other threads apart from the end of a run: guards the change from a state
    // in which a run takes commands to its final one. Taken before the locks below.
    std::mutex stateLock_;
    KernelHandle startEvent_;    // manual reset; there only while startTask() waits
    KernelHandle commandEvent_;  // auto reset
    KernelHandle stopEvent_;
    std::mutex commandLock_;  // guards command_ and keeps it and both events in step
    JobCommand command_ = JobCommand::none;
    HANDLE workThread_ = nullptr;  // joined, and so closed, by join()
    JobActivityHandle activity_;
    Lifecycle lifecycle_;
    std::mutex
        resumeLock_;  // guards what follows up to the flags; the dispatcher's lock comes after
    std::unique_ptr<ErrorResumeTimer> resumeTimer_;
    bool closing_ = false;
    // How often a pause was taken back: what one has broken off meanwhile is to be done again.
    std::atomic<unsigned> pausesTakenBack_{0};
    std::atomic<bool> dropOnly_{false};  // the next run only drops itself at the storage
    std::atomic<bool> running_{false};
    bool removing_ = false;
    bool locked_ = false;
    bool threadless_ = false;  // the system made no thread for the last start
};

}  // namespace dorvo
