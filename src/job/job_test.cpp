#include "job/job.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <thread>

#include "base/error_codes.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "job/jobcmdqueue.h"
#include "record/jobwait.h"
#include "scheduler/iocp_dispatcher.h"
#include "support/log_capture.h"
#include "support/test_job.h"

namespace dorvo {
namespace {

using namespace test;

class JobLifecycle : public testing::Test {
protected:
    // A job of its own that no manager knows.
    std::unique_ptr<TestJob> make(const std::string& id) {
        createDirectories(JobGround::directory(id));
        return std::make_unique<TestJob>(backupDefinition(id));
    }

    JobGround ground_;
    const LogCapture quiet_;
};

TEST_F(JobLifecycle, AStartReturnsWhenTheRunEndsWithoutAWord) {
    TestJob::plans["a"].run = [](TestJob&) { return 1UL; };
    TestJob::plans["b"].run = [](TestJob& job) -> unsigned long {
        job.activity()->pendingState = value(JobState::canceling);
        throw std::runtime_error("torn");
    };
    const auto silent = make("a");
    EXPECT_TRUE(silent->start());
    EXPECT_TRUE(silent->wait(INFINITE));
    EXPECT_EQ(silent->state(), value(JobState::idle));
    const auto throwing = make("b");
    EXPECT_TRUE(throwing->start());
    EXPECT_TRUE(throwing->wait(INFINITE));
    EXPECT_EQ(throwing->state(), value(JobState::error));
    EXPECT_EQ(throwing->activity()->pendingState, 0);
    const Names events = ground_.events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].find(R"({"error-code":1359,"id":"b",)"), 0u);
    EXPECT_EQ(events[1], JobGround::event("b", "error"));
}

TEST_F(JobLifecycle, ANewRunKeepsOnlyTheHistory) {
    const auto job = make("a");
    job->activity()->doneSize = 99;
    job->activity()->lastRunState = 10;
    job->activity()->nextRunTime = 12;
    job->activity()->state = value(JobState::error);
    EXPECT_TRUE(job->start());
    EXPECT_EQ(job->activity()->doneSize, 0U);
    EXPECT_EQ(job->lastRunState(), 10);
    EXPECT_EQ(job->activity()->nextRunTime, 12U);
    EXPECT_TRUE(job->ran.wait());
    EXPECT_EQ(job->activity()->resuming, 0U);
    EXPECT_TRUE(job->stop());
    EXPECT_TRUE(job->wait(INFINITE));
    EXPECT_EQ(job->state(), value(JobState::cancelled));

    EXPECT_TRUE(job->emit(JobCommand::stop)) << "too late for anybody";
    job->activity()->pendingState = value(JobState::canceling);
    EXPECT_TRUE(job->start()) << "joins the former thread";
    EXPECT_TRUE(job->ran.wait()) << "and is not stopped by what came before";
    EXPECT_EQ(job->activity()->pendingState, 0);
    EXPECT_EQ(WaitForSingleObject(job->stopEvent(), 0), DWORD{WAIT_TIMEOUT});
}

TEST_F(JobLifecycle, NobodyElseSaysWhatItsStateIs) {
    const auto job = make("a");
    const KernelHandle section(OpenFileMappingW(FILE_MAP_WRITE, FALSE, L"Global\\job_a"));
    const MappedView view(MapViewOfFile(section.get(), FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_TRUE(view);
    auto& shared = *static_cast<JobActivity*>(view.get());
    shared.state = value(JobState::none);
    EXPECT_TRUE(job->start());
    EXPECT_TRUE(job->ran.wait());
    shared.state = value(JobState::pausing);
    shared.pendingState = value(JobState::pausing);
    EXPECT_EQ(job->state(), value(JobState::running));
    EXPECT_TRUE(job->stop());
    EXPECT_TRUE(job->wait(INFINITE));
    EXPECT_EQ(job->state(), value(JobState::cancelled));
}

// Nobody waits for ever for a run that never was, and a paused run is not lost.
TEST_F(JobLifecycle, AStartWithoutAThreadIsOver) {
    const auto job = make("a");
    const auto event = [](const char* state) {
        return Names{R"({"error-code":8,"id":"a","name":"name of a","reason":")" + errorText(8) +
                         R"(","state":")" + state + "\"}",
                     JobGround::event("a", state)};
    };
    {
        const NoThreads none;
        EXPECT_TRUE(job->start());
        EXPECT_EQ(job->state(), value(JobState::error));
        EXPECT_EQ(job->lastRunState(), value(JobState::error));
        EXPECT_EQ(job->activity()->endError, DWORD{ERROR_NOT_ENOUGH_MEMORY});
        EXPECT_NE(job->activity()->lastRunTime, 0U);
        EXPECT_EQ(ground_.events(), event("error"));
    }
    EXPECT_TRUE(job->start());
    EXPECT_TRUE(job->ran.wait());
    EXPECT_TRUE(job->pause(false));
    EXPECT_TRUE(job->wait(INFINITE));
    const auto instance = job->activity()->instanceId;
    {
        const NoThreads none;
        EXPECT_TRUE(job->start());
        EXPECT_EQ(job->state(), value(JobState::paused));
        const Names all = ground_.events();
        EXPECT_EQ(Names(all.end() - 2, all.end()), event("paused"));
    }
    EXPECT_TRUE(job->resume());
    EXPECT_TRUE(job->ran.wait());
    EXPECT_EQ(job->activity()->instanceId, instance);
    EXPECT_TRUE(job->start()) << "it runs already";
    job->lock(true);
    EXPECT_TRUE(job->stop());
    EXPECT_TRUE(job->wait(INFINITE));
    EXPECT_FALSE(job->start());
    job->activity()->state = value(JobState::canceling);
    job->lock(false);
    EXPECT_FALSE(job->start());
    job->activity()->state = value(JobState::idle);
    EXPECT_EQ(job->refusals, (std::vector<bool>{true, false, true, false, true, true}));
}

TEST_F(JobLifecycle, AResumeTakesBackAPauseThatNobodyHasSeen) {
    const auto job = make("a");
    job->activity()->state = value(JobState::running);
    EXPECT_TRUE(job->pause(true));
    EXPECT_FALSE(job->resumeAfterError()) << "not that of the user";
    EXPECT_TRUE(job->resume());
    EXPECT_EQ(job->activity()->pendingState, 0);
    EXPECT_EQ(job->activity()->pausedManually, 0U);
    EXPECT_EQ(WaitForSingleObject(job->stopEvent(), 0), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(job->pollEvent(0));
    EXPECT_EQ(job->state(), value(JobState::running));

    EXPECT_TRUE(job->stop());
    EXPECT_TRUE(job->resume()) << "and a stop stays one";
    EXPECT_FALSE(job->pollEvent(0));
    EXPECT_EQ(job->state(), value(JobState::canceling));
    job->activity()->state = value(JobState::pausing);
    EXPECT_FALSE(job->resume()) << "too late";
}

TEST_F(JobLifecycle, AnIdleJobIsParkedWithoutAThread) {
    const auto job = make("a");
    EXPECT_TRUE(job->pause(true));
    EXPECT_EQ(job->state(), value(JobState::paused));
    EXPECT_EQ(job->activity()->pausedManually, 1U);
    EXPECT_FALSE(job->running());
    EXPECT_TRUE(ground_.events().empty());
    job->lock(true);
    EXPECT_FALSE(job->resume());
    EXPECT_EQ(job->activity()->pausedManually, 1U) << "a refused start changes nothing";
    job->lock(false);
    EXPECT_TRUE(job->resume());
    EXPECT_TRUE(job->ran.wait());
    EXPECT_TRUE(job->activity()->hasInstance()) << "there was no run to go on with";
    EXPECT_EQ(job->activity()->resuming, 0U);
}

TEST_F(JobLifecycle, CommandsMeetOnlyWhatIsPending) {
    const auto job = make("a");
    job->activity()->state = value(JobState::running);
    EXPECT_TRUE(job->pollEvent(0)) << "nothing is asked";
    EXPECT_TRUE(job->pause(false));
    EXPECT_EQ(job->activity()->pendingState, value(JobState::pausing));
    EXPECT_EQ(WaitForSingleObject(job->stopEvent(), 0), DWORD{WAIT_OBJECT_0});
    EXPECT_TRUE(job->pause(false)) << "only signals again";
    EXPECT_EQ(ground_.events().size(), 1U);
    EXPECT_FALSE(job->pollEvent(0));
    EXPECT_EQ(job->state(), value(JobState::pausing));
    EXPECT_EQ(job->activity()->pendingState, 0);
    EXPECT_EQ(WaitForSingleObject(job->stopEvent(), 0), DWORD{WAIT_OBJECT_0})
        << "an interrupter asks without taking the command, and goes on saying yes";
    EXPECT_FALSE(job->pollEvent(0)) << "pausing, and nothing is asked";

    job->activity()->state = value(JobState::running);
    EXPECT_TRUE(job->stop());
    EXPECT_TRUE(job->pause(true)) << "a stop is pending and stays one";
    EXPECT_EQ(job->activity()->pendingState, value(JobState::canceling));
    EXPECT_FALSE(job->pollEvent(0));
    EXPECT_EQ(job->state(), value(JobState::canceling));

    job->activity()->state = value(JobState::completing);
    EXPECT_TRUE(job->pause(true));
    EXPECT_TRUE(job->pollEvent(INFINITE)) << "too late to pause";
    EXPECT_EQ(WaitForSingleObject(job->stopEvent(), 0), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(job->emit(static_cast<JobCommand>(9)));
    EXPECT_TRUE(job->pollEvent(0)) << "an unknown command is passed over";

    job->activity()->state = value(JobState::paused);
    EXPECT_TRUE(job->emit(JobCommand::resume));
    EXPECT_TRUE(job->pollEvent(0));
    EXPECT_EQ(job->state(), value(JobState::running));
}

TEST_F(JobLifecycle, AUsersPauseOfAPausedJobIsNotResumedAfterAnError) {
    const auto job = make("a");
    job->activity()->state = value(JobState::running);
    EXPECT_TRUE(job->armResume());
    EXPECT_TRUE(job->pause(false));
    EXPECT_TRUE(job->pause(true)) << "while the job's own pause is pending";
    EXPECT_EQ(job->activity()->pausedManually, 1U);
    EXPECT_FALSE(job->armResume());
    job->activity()->state = value(JobState::paused);
    job->activity()->pausedManually = 0;
    EXPECT_TRUE(job->pause(false));
    EXPECT_TRUE(job->armResume());
    EXPECT_TRUE(job->pause(true));
    EXPECT_FALSE(job->armResume());
    job->activity()->state = value(JobState::completed);
    job->activity()->pausedManually = 0;
    EXPECT_TRUE(job->pause(true));
    EXPECT_EQ(job->activity()->pausedManually, 0U) << "nothing to pause";
}

// A step that the stop breaks off asks at once why.
TEST_F(JobLifecycle, WhoeverSeesTheStopSeesItsCommand) {
    const auto job = make("a");
    for (int round = 0; round < 500; ++round) {
        job->activity()->state = value(JobState::running);
        Signal waits;
        bool carriesOn = true;
        std::thread step([&] {
            SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
            waits.set();
            WaitForSingleObject(job->stopEvent(), INFINITE);
            carriesOn = job->pollEvent(0);
        });
        EXPECT_TRUE(waits.wait());
        EXPECT_TRUE(job->stop());
        step.join();
        ASSERT_FALSE(carriesOn) << round;
        job->activity()->state = value(JobState::completing);
        ASSERT_TRUE(job->emit(JobCommand::pause) && job->pollEvent(0)) << "for the next round";
    }
}

TEST_F(JobLifecycle, AResumeIsOnRecordForWhenItIsArmed) {
    constexpr uint64_t hour = 3'600'000;
    const auto job = make("a");
    for (const uint64_t delayMs : {hour, 2 * hour}) {
        const uint64_t before = utcTimeNow();
        ASSERT_TRUE(job->armResume(delayMs));
        EXPECT_GE(loadWait("a"), before + delayMs * ticksPerMillisecond);
        EXPECT_LE(loadWait("a"), utcTimeNow() + delayMs * ticksPerMillisecond);
    }
}

TEST_F(JobLifecycle, TheResumeTimerPutsACommandIntoTheQueue) {
    ASSERT_TRUE(JobGround::manager()->submitJob(backupDefinition("a").release()));
    TestJob* job = JobGround::job("a");
    ASSERT_TRUE(JobGround::manager()->startJob("a"));
    ASSERT_TRUE(job->ran.wait());
    ASSERT_TRUE(job->pause(false));
    ASSERT_TRUE(job->wait(INFINITE));
    ErrorResumeTimer timer("a");
    EXPECT_TRUE(timer.arm());
    EXPECT_TRUE(timer.arm());
    EXPECT_EQ(Iocp_Dispatcher::instance()->cancel_timer(&timer), 0);
    EXPECT_EQ(Iocp_Dispatcher::instance()->cancel_timer(&timer), -1) << "one timer, armed twice";
    timer.handle_timeout(Timeout_Handler::clockChanged);
    EXPECT_EQ(Iocp_Dispatcher::instance()->cancel_timer(&timer), 0) << "armed anew";
    EXPECT_EQ(job->state(), value(JobState::paused));
    timer.handle_timeout(1);
    EXPECT_TRUE(job->ran.wait()) << "the queue has resumed it";
    EXPECT_EQ(Iocp_Dispatcher::instance()->cancel_timer(&timer), 0)
        << "armed anew: the command might have been lost";
}

TEST_F(JobLifecycle, AJobWithoutARecordRefusesEverything) {
    TestJob job(backupDefinition("nowhere"));  // no directory, no record
    EXPECT_EQ(job.activity().get(), nullptr);
    EXPECT_EQ(job.state(), value(JobState::none));
    EXPECT_FALSE(job.start() || job.resume() || job.pause(true) || job.startTask());
    EXPECT_FALSE(job.armResume());
    EXPECT_TRUE(job.file().empty());
    json_spirit::Object object;
    job.toJSON(object);
    EXPECT_EQ(json_spirit::write(json_spirit::Value(object)), R"({"id":"nowhere","state":"none"})");
}

TEST_F(JobLifecycle, TellsItsStateInALine) {
    struct Row {
        int32_t state;
        uint32_t resuming;
        uint64_t offset, size;
        uint32_t index, count;
        const char* text;
    };
    constexpr Row rows[] = {
        {3, 0, 5, 10, 2, 4, R"(running at file 2 "C:\ä" size 10 offset 5)"},
        {3, 1, 10, 10, 2, 4, "resuming at file 3"},  // between files
        {2, 1, 0, 0, 4, 4, "starting"},              // after the last
        {4, 0, 5, 10, 0, 1, "completingused time: 12"},
        {5, 0, 5, 10, 0, 1, "pausing."},
        {77, 0, 0, 0, 0, 0, "none."},
    };
    const auto job = make("a");
    for (const Row& row : rows) {
        job->activity().reset(3, true);
        job->activity()->resuming = row.resuming;
        job->activity()->fileOffset = row.offset;
        job->activity()->fileSize = row.size;
        job->activity()->fileIndex = row.index;
        job->activity()->fileCount = row.count;
        job->activity()->usedTime = 129'999'999;
        job->activity()->currentFilePath(L"C:\\\u00e4");
        std::ostringstream text;
        job->dumpState(text, static_cast<JobState>(row.state));
        EXPECT_EQ(text.str(), std::string("Job {a, name of a} instance "
                                          "{00000000-0000-0000-0000-000000000000} is ") +
                                  row.text);
    }
}

TEST_F(JobLifecycle, TellsItsStateInJson) {
    struct Row {
        const char* name;
        int32_t state;
        int32_t pending;
        uint32_t fileState;
        const char* text;
    };
    constexpr Row rows[] = {
        {"idle", 1, 0, 1, R"({"id":"a","state":"idle"})"},
        {"a stop is pending", 3, 8, 1, R"({"id":"a","state":"canceling"})"},
        {"a pause is pending", 3, 5, 1,
         R"({"currentFileState":"encoding","file":"C:\\ä","fileProgress":25,"id":"a","progress":50,"remainTime":1,"speed":7,"state":"pausing"})"},
        {"paused", 6, 0, 9,
         R"({"currentFileState":"none","file":"C:\\ä","fileProgress":25,"id":"a","paused-manually":true,"progress":50,"remainTime":1,"speed":7,"state":"paused"})"},
    };
    const auto job = make("a");
    for (const Row& row : rows) {
        JobActivity& record = *job->activity().get();
        record.reset(row.state, true);
        record.pendingState = row.pending;
        record.pausedManually = 1;
        record.totalSize = 200;
        record.doneSize = 75;
        record.fileOffset = 25;
        record.fileSize = 100;
        record.transferred = 7;
        record.currentFileState = row.fileState;
        record.currentFilePath(L"C:\\\u00e4");
        json_spirit::Object object;
        job->toJSON(object);
        EXPECT_EQ(json_spirit::write(json_spirit::Value(object)), row.text) << row.name;
    }
}

TEST_F(JobLifecycle, ReportsErrorsWithTheirReason) {
    const auto job = make("a");
    job->activity()->state = value(JobState::error);
    EXPECT_TRUE(job->notify_error(0x20010000U | 404));
    EXPECT_TRUE(job->notify_error(5));
    EXPECT_TRUE(job->notify_error(errorKeyForeign));
    const auto expected = [](int code, const std::string& reason) {
        return R"({"error-code":)" + std::to_string(code) +
               R"(,"id":"a","name":"name of a","reason":")" + reason + R"(","state":"error"})";
    };
    EXPECT_EQ(ground_.events(),
              (Names{expected(404, "Not Found"), expected(5, errorText(5)),
                     expected(errorKeyForeign, keyErrorText(errorKeyForeign, "u"))}));
}

TEST_F(JobLifecycle, KnowsWhatAnotherTryMayCure) {
    const auto job = make("a");
    for (const unsigned long code :
         {10054UL, 10060UL, 10070UL, 10101UL, 0x200101F7UL, 0x200101F8UL}) {
        EXPECT_TRUE(job->is_network_error(code)) << code;
    }
    for (const unsigned long code : {0UL, 1223UL, 10061UL, 503UL, 0x20010191UL, 0x200101F4UL}) {
        EXPECT_FALSE(job->is_network_error(code)) << code;
    }
}

TEST_F(JobLifecycle, TellsTimes) {
    struct Time {
        uint64_t ticks;
        int date, time;
    };
    for (const Time& row :
         {Time{0, 0, 0}, Time{133'536'640'899'990'000, 20240229, 70809}, Time{~0ULL, 0, 0}}) {
        int date = 1;
        int time = 1;
        TestJob::toDateTime(toFileTime(row.ticks), date, time);
        EXPECT_EQ(date, row.date) << row.ticks;
        EXPECT_EQ(time, row.time) << row.ticks;
    }
}

}  // namespace
}  // namespace dorvo
