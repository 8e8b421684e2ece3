// A job whose run is what the test says, and the ground that jobs stand on.
#pragma once

#include <jobdef/backupjobdefinition.h>
#include <jobdef/restorejobdefinition.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/files.h"
#include "base/paths.h"
#include "base/thread.h"
#include "job/job.h"
#include "job/jobcmdqueue.h"
#include "job/jobfactory.h"
#include "job/jobmanager.h"
#include "notify/jobnotifymanager.h"
#include "scheduler/iocp_dispatcher.h"
#include "support/signal.h"

namespace dorvo::test {

using Names = std::vector<std::string>;

constexpr int32_t value(JobState state) {
    return static_cast<int32_t>(state);
}

class TestJob : public Job {
public:
    using Job::activity;
    using Job::armResume;
    using Job::disarmResume;
    using Job::dumpState;
    using Job::emit;
    using Job::is_network_error;
    using Job::join;
    using Job::notify_error;
    using Job::pollEvent;
    using Job::setStartEvent;
    using Job::startTask;
    using Job::stopEvent;
    using Job::toDateTime;

    // What the next jobs do, by id. Set before the job is made.
    struct Plan {
        std::function<unsigned long(TestJob&)> run = [](TestJob& job) { return job.untilAsked(); };
        bool initialises = true;
        bool stops = true;
    };
    static inline std::map<std::string, Plan> plans;

    explicit TestJob(std::unique_ptr<JobDefinition> definition)
        : Job(std::move(definition)), plan_(plans[this->definition().id()]) {}
    ~TestJob() override { shutdown(); }

    bool init() override {
        ++inits;
        return plan_.initialises;
    }
    bool stop() override {
        if (!plan_.stops) {
            SetLastError(ERROR_BUSY);
            return false;
        }
        activity()->pendingState = value(JobState::canceling);
        return emit(JobCommand::stop);
    }

    // Gets under way; false when it was asked to leave at once.
    bool begin() {
        activity()->state = value(JobState::starting);
        setStartEvent();
        if (!pollEvent(0)) {
            return false;
        }
        activity()->state = value(JobState::running);
        ran.set();
        return true;
    }
    // Ends as it was asked to.
    unsigned long finish() {
        const bool paused = state() == value(JobState::pausing);
        const bool stopped = state() == value(JobState::canceling);
        activity()->state = value(paused    ? JobState::paused
                                  : stopped ? JobState::cancelled
                                            : JobState::completed);
        return 0;
    }
    unsigned long untilAsked() {
        if (begin()) {
            while (pollEvent(INFINITE)) {
            }
        }
        return finish();
    }

    Signal ran{true};  // set by each run that got under way
    Names commands;
    std::vector<bool> refusals;  // of each start that was asked for
    int inits = 0;

protected:
    unsigned long run() override { return plan_.run(*this); }
    bool commandimpl(const char* text) override {
        commands.emplace_back(text);
        return true;
    }

    void startAsked(bool refused) override { refusals.push_back(refused); }

private:
    Plan plan_;
};

// The system makes no thread while this lives.
class NoThreads {
public:
    NoThreads() {
        setThreadStarter([](DWORD(WINAPI*)(void*), void*, HANDLE& thread) {
            thread = nullptr;
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return false;
        });
    }
    ~NoThreads() { setThreadStarter(nullptr); }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};

inline std::unique_ptr<Job> makeTestJob(std::unique_ptr<JobDefinition>& definition) {
    if (definition->type() > JobDefinition::restoreType) {
        return nullptr;
    }
    return std::make_unique<TestJob>(std::move(definition));
}

// A definition of the kind; `user` is "u", the name "name of <id>".
inline std::unique_ptr<BackupJobDefinition> backupDefinition(
    const std::string& id, ScheduleKind kind = ScheduleKind::manual) {
    auto definition = std::make_unique<BackupJobDefinition>(
        id, L"name of " + std::wstring(id.begin(), id.end()), "u");
    JobSchedule schedule;
    schedule.kind = kind;
    schedule.start = 1;
    schedule.day = kind == ScheduleKind::monthly ? 1 : 0;
    definition->setSchedule(schedule);
    return definition;
}

class EventLog : public JobNotifyObserver {
public:
    EventLog() : JobNotifyObserver("") { manager()->registerObserver(this); }
    ~EventLog() override { manager()->unregisterObserver(this); }
    bool deliver(const std::string& text) override {
        texts.push_back(text);
        return true;
    }

    Names texts;

private:
    static JobNotifyManagerImpl* manager() {
        return ATL::CComSingleton<JobNotifyManagerImpl, ATL::CComAutoCriticalSection>::instance();
    }
};

// An empty job root, a running dispatcher, test jobs instead of real ones, and an observer.
class JobGround {
public:
    JobGround() {
        std::wstring root;
        jobRoot(root);
        rm_rf(root, true);
        createDirectories(root);
        TestJob::plans.clear();
        setJobMaker(makeTestJob);
        JobCmdQueue::carriedOutBy(manager());
        IocpDispatherWrapper::open();
        IocpDispatherWrapper::activate();
    }
    ~JobGround() {
        manager()->close();
        IocpDispatherWrapper::close();
        setJobMaker(nullptr);
        TestJob::plans.clear();
    }
    JobGround(const JobGround&) = delete;
    JobGround& operator=(const JobGround&) = delete;

    static JobManagerImpl* manager() {
        return ATL::CComSingleton<JobManagerImpl, ATL::CComAutoCriticalSection>::instance();
    }
    static TestJob* job(const char* id) {
        return static_cast<TestJob*>(const_cast<Job*>(manager()->job(id)));
    }
    static std::wstring directory(const std::string& id) {
        std::wstring path;
        jobDirectory(id, path);
        return path;
    }
    // Every event so far, after those on their way have come.
    const Names& events() {
        IocpDispatherWrapper::close();
        IocpDispatherWrapper::open();
        IocpDispatherWrapper::activate();
        return log_.texts;
    }
    // The JSON of an event of a job of backupDefinition().
    static std::string event(const std::string& id, const char* state) {
        return R"({"id":")" + id + R"(","name":"name of )" + id + R"(","state":")" + state + "\"}";
    }

private:
    EventLog log_;
};

}  // namespace dorvo::test
