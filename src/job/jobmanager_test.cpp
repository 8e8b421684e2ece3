#include "job/jobmanager.h"

#include <gtest/gtest.h>

#include <jobdef/jobdefinitionfactory.h>

#include <functional>
#include <future>
#include <utility>

#include "base/files.h"
#include "base/machine_name.h"
#include "base/text.h"
#include "storage/local/localplace.h"
#include "support/files.h"
#include "support/held_file.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "support/test_job.h"

namespace dorvo {
namespace {

using namespace test;

class JobManager : public testing::Test {
protected:
    static std::unique_ptr<JobDefinition> saved(const std::string& id) {
        return JobDefinitionFactory::create(JobGround::directory(id) + L"\\def");
    }
    static bool submit(const std::string& id) {
        return manager_->submitJob(backupDefinition(id).release());
    }
    static Names ids() {
        Names result;
        for (const Job* job : manager_->jobs()) {
            result.push_back(job->definition().id());
        }
        return result;
    }
    // A job of the id whose run is under way.
    static TestJob* running(const std::string& id) {
        EXPECT_TRUE(submit(id));
        EXPECT_TRUE(manager_->startJob(id.c_str()));
        TestJob* job = JobGround::job(id.c_str());
        EXPECT_TRUE(job->ran.wait());
        return job;
    }
    static void writeFile(const std::wstring& path, const std::string& text) {
        createDirectories(path.substr(0, path.rfind(L'\\')));
        storeFile(path, text);
    }
    // The manager's jobs are gone when this returns, removals included.
    static void restart() {
        manager_->close();
        EXPECT_TRUE(manager_->open());
    }

    JobGround ground_;
    const LogCapture quiet_;
    static inline JobManagerImpl* manager_ = JobGround::manager();
};

TEST_F(JobManager, LoadsWhatItFindsAndRecyclesWhatIsNoJob) {
    EXPECT_TRUE(submit("good"));
    EXPECT_TRUE(submit("stubborn"));
    writeFile(JobGround::directory("missing") + L"\\hist\\old", "x");
    writeFile(JobGround::directory("damaged") + L"\\def", "{\"id\": ");
    const std::string unknown =
        R"({"id":"unknown","name":"n","user":"u","type":9,"storage":"web"})";
    writeFile(JobGround::directory("unknown") + L"\\def", unknown);
    const std::string later = R"({"id":"later","name":"n","user":"u","type":1,"storage":"tape"})";
    writeFile(JobGround::directory("later") + L"\\def", later);
    writeFile(JobGround::directory("held") + L"\\def", backupDefinition("held")->text());
    writeFile(JobGround::directory("marked") + L"\\def",
              "\xEF\xBB\xBF" + backupDefinition("marked")->text());
    ASSERT_TRUE(saved("good")->save(JobGround::directory("copy") + L"\\def"));
    TestJob::plans["stubborn"].initialises = false;
    std::wstring data;
    ASSERT_TRUE(dataDirectory(data));
    writeFile(data + L"\\consistentcheck\\deep\\file", "x");
    FileHandle held = holdFile(JobGround::directory("held") + L"\\def", GENERIC_WRITE);
    const auto restartWhile = [](const std::function<void()>& act) {
        const Meanwhile waiting(act);
        restart();
    };
    restartWhile([] {});
    EXPECT_FALSE(exists(data + L"\\consistentcheck\\deep"));
    EXPECT_EQ(ids(), (Names{"good", "marked"})) << "and not what somebody holds all the time";
    EXPECT_TRUE(quiet_.begins("Leave out the job directory \"" +
                              toUtf8(JobGround::directory("held")) + "\""));
    restartWhile([&] { held.reset(); });
    EXPECT_EQ(ids(), (Names{"good", "held", "marked"})) << "who held it has let go";
    for (const auto& [id, kept] : {std::pair{"missing", false},
                                   {"damaged", false},
                                   {"unknown", true},
                                   {"later", true},
                                   {"stubborn", true},
                                   {"copy", true}}) {
        EXPECT_EQ(exists(JobGround::directory(id)), kept) << id;
    }
    EXPECT_EQ(JobGround::job("good")->state(), value(JobState::idle));
    for (const char* id : {"Stubborn", "later", "copy", "unknown"}) {
        EXPECT_TRUE(manager_->removeJob(id)) << id;
        EXPECT_FALSE(exists(JobGround::directory(id))) << id;
        EXPECT_FALSE(manager_->removeJob(id)) << id;
    }
    EXPECT_TRUE(exists(JobGround::directory("good")));
    EXPECT_FALSE(manager_->removeJob("missing"));
    EXPECT_EQ(ground_.events().back(), R"({"id":"unknown","name":"n","state":"deleted"})");
}

TEST_F(JobManager, RefusesWhatCannotBeAJob) {
    EXPECT_FALSE(manager_->submitJob(nullptr));
    for (const char* bad : {"", "..", "a\\b", "a/b", "nul", "c:", "dot.", "star*"}) {
        EXPECT_FALSE(submit(bad)) << bad;
    }
    std::unique_ptr<JobDefinition> unknown = JobDefinitionFactory::createFromText(
        R"({"id":"unknown","name":"n","user":"u","type":9,"storage":"web"})");
    ASSERT_NE(unknown, nullptr);
    EXPECT_FALSE(manager_->submitJob(unknown->clone().release()));
    EXPECT_FALSE(exists(JobGround::directory("unknown"))) << "nothing is left behind";
    // What was there before is not this submission's to take back.
    writeFile(JobGround::directory("unknown") + L"\\hist\\old", "x");
    writeFile(JobGround::directory("unknown") + L"\\def", "of another version");
    EXPECT_FALSE(manager_->submitJob(unknown->clone().release()));
    EXPECT_TRUE(exists(JobGround::directory("unknown") + L"\\hist\\old"));
    EXPECT_EQ(fileContent(JobGround::directory("unknown") + L"\\def"), "of another version");
    // A file where the job's folder should be: the definition can't be saved.
    writeFile(JobGround::directory("file"), "in the way");
    EXPECT_FALSE(submit("file"));
    EXPECT_TRUE(exists(JobGround::directory("file")));
    EXPECT_TRUE(manager_->jobs().empty());
    EXPECT_TRUE(ground_.events().empty());
}

TEST_F(JobManager, UpdatesAJobThatDoesNotRun) {
    EXPECT_TRUE(submit("Job"));
    TestJob* job = JobGround::job("Job");
    for (const JobState state :
         {JobState::idle, JobState::completed, JobState::cancelled, JobState::error,
          JobState::starting, JobState::running, JobState::completing, JobState::pausing,
          JobState::paused, JobState::canceling}) {
        const std::wstring former = job->definition().name();
        job->activity()->state = value(state);
        auto changed = backupDefinition("jOB", ScheduleKind::daily);
        changed->setName(L"changed " + std::to_wstring(value(state)));
        const int inits = job->inits;
        EXPECT_TRUE(manager_->submitJob(changed.release()));
        const bool taken = isRestartable(state);
        EXPECT_EQ(job->definition().name(),
                  taken ? L"changed " + std::to_wstring(value(state)) : former);
        EXPECT_EQ(saved("Job")->name(), job->definition().name());
        EXPECT_EQ(job->inits, inits + 1);
        EXPECT_EQ(job->state(), value(state));
    }
    EXPECT_EQ(ids().size(), 1U);
    EXPECT_EQ(ground_.events().size(), 1U + 10 * 2) << "updated and idle, taken or not";
    EXPECT_EQ(ground_.events().back(), R"({"id":"jOB","name":"changed 8","state":"idle"})");
    job->activity()->state = value(JobState::idle);
    EXPECT_FALSE(manager_->submitJob(new RestoreJobDefinition("Job", L"n", "u")))
        << "a job keeps its type";
    EXPECT_EQ(job->definition().type(), 1);

    // What cannot be saved is not taken: after the next start the old one would be back.
    createDirectories(JobGround::directory("Job") + L"\\def.new");
    const size_t events = ground_.events().size();
    EXPECT_FALSE(manager_->submitJob(backupDefinition("Job").release()));
    EXPECT_EQ(job->definition().name(), L"changed 10");
    EXPECT_EQ(saved("Job")->name(), L"changed 10");
    EXPECT_EQ(ground_.events().size(), events);
}

TEST_F(JobManager, DrivesAllJobsPastAFailure) {
    TestJob::plans["b"].stops = false;
    for (const char* id : {"a", "b", "c"}) {
        EXPECT_TRUE(submit(id));
    }
    manager_->lockJob("b");
    manager_->startAllJobs(false);
    EXPECT_TRUE(JobGround::job("a")->ran.wait());
    EXPECT_TRUE(JobGround::job("c")->ran.wait());
    EXPECT_EQ(JobGround::job("b")->state(), value(JobState::idle));
    manager_->pauseAllJobs(true);
    EXPECT_EQ(JobGround::job("a")->state(), value(JobState::paused));
    EXPECT_EQ(JobGround::job("b")->state(), value(JobState::paused));
    EXPECT_EQ(JobGround::job("a")->activity()->pausedManually, 0U) << "nobody's own pause";
    manager_->resumeAllJobs(false);
    EXPECT_TRUE(JobGround::job("c")->ran.wait());
    manager_->stopAllJobs(true);
    EXPECT_EQ(JobGround::job("a")->state(), value(JobState::cancelled));
    EXPECT_EQ(JobGround::job("c")->state(), value(JobState::cancelled));
    manager_->lockAllJobs(false);
    EXPECT_TRUE(manager_->startJob("b"));
}

TEST_F(JobManager, RemovesARunningJobOnAThreadOfItsOwn) {
    Signal leave;
    TestJob::plans["a"].run = [&](TestJob& job) {
        const unsigned long result = job.untilAsked();
        leave.wait();
        return result;
    };
    running("a");
    EXPECT_TRUE(submit("b"));
    EXPECT_TRUE(manager_->removeJob("A"));
    EXPECT_NE(manager_->job("a"), nullptr) << "until its run has ended";
    EXPECT_TRUE(manager_->removeJob("a")) << "once more";
    leave.set();
    manager_->close();
    EXPECT_FALSE(exists(JobGround::directory("a")));
    EXPECT_TRUE(exists(JobGround::directory("b")));
    EXPECT_EQ(ground_.events().back(), JobGround::event("a", "deleted"));
    EXPECT_FALSE(manager_->removeJob("a"));
}

TEST_F(JobManager, WaitsWithoutItsLockForWhoLooksIntoARemovedJobsDirectory) {
    for (const bool loaded : {true, false}) {
        SCOPED_TRACE(loaded);
        EXPECT_TRUE(submit("a"));
        TestJob::plans["a"].initialises = loaded;
        restart();
        FileHandle held = holdFile(JobGround::directory("a") + L"\\def");
        Signal waits;
        Signal leave;
        const Meanwhile look([&] {
            waits.set();
            EXPECT_TRUE(leave.wait()) << "others are held up";
            held.reset();
        });
        auto removal = std::async(std::launch::async, [] { return manager_->removeJob("a"); });
        EXPECT_TRUE(waits.wait());
        EXPECT_EQ(manager_->job("a"), nullptr);
        EXPECT_TRUE(submit("b"));
        Signal begun;
        auto successor = std::async(std::launch::async, [&] {
            begun.set();
            return submit("A");
        });
        EXPECT_TRUE(begun.wait());
        leave.set();
        EXPECT_TRUE(successor.get() && removal.get());
        EXPECT_TRUE(saved("A")) << "nobody deletes what came after";
        EXPECT_EQ(ids(), (Names{"b", "A"}));
        EXPECT_TRUE(manager_->removeJob("A") && manager_->removeJob("b"));
        restart();
    }
}

// By whom they are told is the teller's own test: here it is when.
TEST_F(JobManager, HasRunsDroppedWhenItOpensAndWhenAJobWasRemoved) {
    const TemporaryFolder place(L"dorvo dropped");
    std::string machine;
    ASSERT_TRUE(machineName(machine));
    // What a run has left in a folder of backups, and the folder of its drop.
    const auto leave = [&](const std::string& job) {
        const char* const id = "00000000-0000-0000-0000-000000000001";
        std::wstring instance =
            place.path() + L"\\" + toWide(machine) + L"\\" + toWide(job) + L"\\" + toWide(id);
        createDirectories(instance);
        PendingDrops(job).note({id, place.path()});
        return instance;
    };
    const auto untilGone = [](const std::wstring& folder) {
        const std::wstring above = folder.substr(0, folder.rfind(L'\\'));
        HANDLE change =
            FindFirstChangeNotificationW(above.c_str(), FALSE, FILE_NOTIFY_CHANGE_DIR_NAME);
        for (int seconds = 0; exists(folder) && seconds < 60; ++seconds) {
            WaitForSingleObject(change, 1000);
            FindNextChangeNotification(change);
        }
        FindCloseChangeNotification(change);
        return !exists(folder);
    };
    EXPECT_TRUE(submit("live"));
    const std::wstring ofLive = leave("live");
    restart();
    EXPECT_TRUE(untilGone(ofLive));

    restart();
    const std::wstring ofGone = leave("gone");
    PendingDrops("gone").handOn(*backupDefinition("gone"));
    EXPECT_TRUE(submit("other"));
    EXPECT_TRUE(manager_->removeJob("other"));
    EXPECT_TRUE(untilGone(ofGone));

    // Also one of which no job could be made.
    EXPECT_TRUE(submit("stubborn"));
    const std::wstring ofLeftOut = leave("stubborn");
    TestJob::plans["stubborn"].initialises = false;
    {
        JobActivityHandle& record = JobGround::job("stubborn")->activity();
        record->state = value(JobState::paused);
        record->instanceId = localInstanceId("00000000-0000-0000-0000-000000000001");
    }
    restart();
    EXPECT_TRUE(exists(ofLeftOut)) << "which goes on when it is loaded again";
    EXPECT_TRUE(manager_->removeJob("stubborn"));
    EXPECT_TRUE(untilGone(ofLeftOut));
    manager_->close();
    EXPECT_FALSE(exists(JobGround::directory("live") + L"\\drops"));
}

// Those of a job that was removed while its disk was full.
TEST_F(JobManager, TellsRunsWhereTheyCouldNotBeHandedOnAndMakesNoJobOfThem) {
    manager_->close();
    const std::wstring home = JobGround::directory("kept");
    createDirectories(home);
    ASSERT_TRUE(backupDefinition("kept")->save(home + L"\\def"));
    PendingDrops("kept").note({"00000000-0000-0000-0000-000000000001", L""});
    const std::wstring drops = home.substr(0, home.rfind(L"\\job\\")) + L"\\drops";
    EXPECT_TRUE(rm_rf(drops, true));
    storeFile(drops, "no room");
    EXPECT_FALSE(PendingDrops("kept").handOn(*backupDefinition("kept")));
    Signal told;
    JobManagerImpl other([&](const JobDefinition& job, const PendingDrop&, HANDLE) {
        EXPECT_EQ(job.id(), "kept");
        told.set();
        SetLastError(WSAECONNRESET);
        return false;
    });
    EXPECT_TRUE(other.open());
    EXPECT_TRUE(told.wait());
    EXPECT_EQ(other.job("kept"), nullptr);
    other.close();
    EXPECT_TRUE(exists(home + L"\\drops\\def"));
    DeleteFileW(drops.c_str());
}

// A server that is not there holds up no run that is to pause.
TEST_F(JobManager, PausesItsRunsBeforeItWaitsForThoseWhoTellOfDrops) {
    EXPECT_TRUE(submit("a"));
    manager_->close();
    PendingDrops("a").note({"00000000-0000-0000-0000-000000000001", L""});
    Signal telling;
    Signal ended;
    bool paused = false;
    TestJob::plans["a"].run = [&](TestJob& job) {
        const unsigned long result = job.untilAsked();
        ended.set();
        return result;
    };
    JobManagerImpl other([&](const JobDefinition&, const PendingDrop&, HANDLE) {
        telling.set();
        paused = ended.wait();
        SetLastError(WSAECONNRESET);
        return false;
    });
    EXPECT_TRUE(other.open());
    EXPECT_TRUE(telling.wait());
    EXPECT_TRUE(other.startJob("a"));
    other.close();
    EXPECT_TRUE(paused);
}

TEST_F(JobManager, ALateRemovalLeavesASuccessorAlone) {
    EXPECT_TRUE(submit("a"));
    {
        std::lock_guard hold(manager_->locker());  // both removals come to wait here
        EXPECT_TRUE(manager_->removeJob("a"));
        EXPECT_TRUE(manager_->removeJob("a"));
    }
    manager_->close();
    EXPECT_TRUE(submit("a"));
    // The same as a removal that was late by this much.
    class Late : public JobManagerImpl {
    public:
        static bool remove(JobManagerImpl* manager, const char* id) {
            return (manager->*(&Late::deleteJob))(id);
        }
    };
    EXPECT_FALSE(Late::remove(manager_, "a"));
    EXPECT_NE(manager_->job("a"), nullptr);
}

TEST_F(JobManager, AJobThatCannotBeStoppedIsNotRemoved) {
    TestJob::plans["a"].stops = false;
    running("a");
    EXPECT_FALSE(manager_->removeJob("a"));
    EXPECT_TRUE(manager_->pauseJob("a"));
    EXPECT_TRUE(JobGround::job("a")->wait(INFINITE));
    EXPECT_TRUE(manager_->resumeJob("a")) << "it is still a job";
}

}  // namespace
}  // namespace dorvo
