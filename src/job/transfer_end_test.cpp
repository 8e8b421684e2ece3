// How backup and restore jobs start, stop, wait and go on, and what a crash leaves of them.
#include "job/transfer.h"

#include <stdexcept>

#include "job/each_job.h"
#include "record/jobwait.h"
#include "storage/refusalwords.h"

namespace dorvo {
namespace {

using namespace test;

template <class Kind>
class TransferEnd : public EachJob<Kind> {};
TYPED_TEST_SUITE(TransferEnd, JobKinds, JobKindNames);

TYPED_TEST(TransferEnd, StartFailures) {
    struct Row {
        const char* name;
        DWORD error;
        bool wait;
        int32_t state;
    };
    const Row rows[] = {
        {"no session", 0x20010191, false, paused},
        {"busy", 0x200101F7, false, paused},
        {"server error", 0x200101F4, false, failed},
        {"refused", WSAECONNREFUSED, false, failed},
        {"refused, worth waiting", WSAECONNREFUSED, true, paused},
        {"no storage", ERROR_NOT_SUPPORTED, false, failed},
    };
    Script& script = this->script_;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        this->anew();
        script.start = {row.error};
        script.noStorage = row.error == ERROR_NOT_SUPPORTED;
        this->waitForServer_ = row.wait;
        const auto job = this->makeJob();
        this->run(*job, row.state);
        EXPECT_EQ(job->record().endError, row.error);
        EXPECT_EQ(script.count("cancel"), row.state == failed && !script.noStorage ? 1u : 0u);
        EXPECT_TRUE(script.stored().empty());
        EXPECT_EQ(job->history().at("state").get_str(), jobStateToString(row.state));
    }
}

TYPED_TEST(TransferEnd, ARunThatThrowsEndsLikeAnyOtherFailure) {
    this->script_.onItem = [](const std::string&) { throw std::runtime_error("broken"); };
    const auto job = this->makeJob();
    // Nothing that the run had open is in the way of its end.
    this->script_.onCleanup = [&](int) {
        EXPECT_NE(MoveFileW(this->list().c_str(), (this->list() + L"2").c_str()), 0);
    };
    this->run(*job, failed);
    EXPECT_EQ(job->lastRunState(), failed);
    EXPECT_EQ(this->script_.count("cancel"), 1u);
    EXPECT_EQ(job->history().at("state").get_str(), "error");
}

TYPED_TEST(TransferEnd, AStopOutweighsTheErrorItCauses) {
    Script& script = this->script_;
    const auto job = this->makeJob();
    script.items["b"] = {WSAECONNRESET};
    script.onItem = [&](const std::string& name) {
        if (name == "b") {
            EXPECT_TRUE(job->stop());
        }
    };
    this->run(*job, cancelled);
    EXPECT_EQ(script.stored(), (Names{"sources", "a", "b"}));
    EXPECT_EQ(script.calls.back(), "cancel");
    EXPECT_TRUE(job->errors().empty());
    EXPECT_EQ(job->record().pendingState, 0);
}

TYPED_TEST(TransferEnd, StoppingAPausedRunOnlyDropsIt) {
    Script& script = this->script_;
    script.items["b"] = {WSAECONNRESET};
    const auto job = this->makeJob();
    this->run(*job);
    script.calls.clear();
    this->stop(*job, cancelled);
    EXPECT_EQ(script.calls, Names{"cancel"});
    EXPECT_FALSE(exists(this->dataPath(L"\\job\\j1\\act\\vol\\1")));
    // A storage that waits for a stalled server does so for a while only.
    EXPECT_EQ(WaitForSingleObject(job->stopEvent(), 0), static_cast<DWORD>(WAIT_OBJECT_0));
}

TYPED_TEST(TransferEnd, ADropThatCouldNotBeginIsNotTheNextRuns) {
    Script& script = this->script_;
    script.items["b"] = {WSAECONNRESET};
    const auto job = this->makeJob();
    this->run(*job);
    script.calls.clear();
    script.onRun = [] { throw std::runtime_error("no memory"); };
    this->stop(*job, failed);
    EXPECT_EQ(job->record().endError, DWORD{ERROR_INTERNAL_ERROR});
    EXPECT_EQ(job->record().pendingState, 0);
    script.onRun = nullptr;
    this->run(*job, completed);
    EXPECT_EQ(script.stored(), (Names{"sources", "a", "b", "c"}));
}

TYPED_TEST(TransferEnd, AParkedJobStopsWithoutAThreadAndStartsANewRun) {
    const auto job = this->makeJob();
    EXPECT_TRUE(job->pause(true));
    EXPECT_TRUE(job->stop());
    EXPECT_EQ(job->state(), cancelled);
    EXPECT_TRUE(this->script_.calls.empty());
    this->run(*job, completed);
}

TYPED_TEST(TransferEnd, WaitsLongerWhileItComesNoFurther) {
    Script& script = this->script_;
    script.start = {0, WSAECONNRESET, WSAECONNRESET, 0, 0, 0};
    script.items["b"] = {WSAECONNRESET, WSAECONNRESET, 0};
    script.items["c"] = {WSAECONNRESET};
    const auto job = this->makeJob();
    for (const char* seconds : {"30", "60", "120", "240", "30"}) {
        this->log_.emplace();
        this->run(*job, paused);
        EXPECT_TRUE(
            this->log_->has("Job {j1} tries again in " + std::string(seconds) + " seconds.\n"))
            << seconds;
    }
    this->run(*job, completed);
}

TYPED_TEST(TransferEnd, WhatTheServiceSaysIsOnRecordWhileTheRunWaits) {
    Script& script = this->script_;
    script.items["b"] = {0x200101F7};
    script.onItem = [](const std::string&) { keepRefusalWords(0x200101F7, "no room"); };
    const auto job = this->makeJob();
    this->run(*job);
    ASSERT_EQ(job->state(), paused);
    EXPECT_EQ(loadWaitWords("j1", 0x200101F7), "no room");
    EXPECT_NE(loadWait("j1"), 0u);
}

TYPED_TEST(TransferEnd, AnyProgressShortensTheWait) {
    struct Row {
        const char* name;
        void (*comesFurther)(JobActivity& record);
        const char* seconds;
    };
    const Row rows[] = {
        {"none", [](JobActivity&) {}, "60"},
        {"blocks", [](JobActivity& record) { ++record.acceptedBlocks; }, "30"},
        {"bytes", [](JobActivity& record) { ++record.fileOffset; }, "30"},
        {"another list", [](JobActivity& record) { ++record.totalSize; }, "30"},
    };
    Script& script = this->script_;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        this->anew();
        script.items["b"] = {WSAECONNRESET, WSAECONNRESET};
        const auto job = this->makeJob();
        this->run(*job, paused);
        script.onItem = [&](const std::string&) { row.comesFurther(job->record()); };
        const uint64_t before = utcTimeNow();
        this->run(*job, paused);
        EXPECT_GE(loadWait("j1"), before + std::stoull(row.seconds) * ticksPerSecond);
        EXPECT_LE(loadWait("j1"), utcTimeNow() + std::stoull(row.seconds) * ticksPerSecond);
    }
}

TYPED_TEST(TransferEnd, AStopThatComesWhileAPausedRunWindsDownEndsIt) {
    Script& script = this->script_;
    script.items["b"] = {WSAECONNRESET};
    const auto job = this->makeJob();
    script.onCleanup = [&](int end) {
        if (end == paused) {
            EXPECT_TRUE(job->stop());
        }
    };
    this->run(*job, cancelled);
    EXPECT_EQ(script.calls.back(), "cancel");
}

TYPED_TEST(TransferEnd, TakesUpWhatACrashLeft) {
    struct Row {
        JobState left;
        int32_t pending;
        uint32_t manual;
        int32_t found;
        uint32_t stillManual;
    };
    using enum JobState;
    constexpr auto idleFound = static_cast<int32_t>(idle);
    const Row rows[] = {
        {starting, 0, 0, test::paused, 0},
        {running, 0, 0, test::paused, 0},
        {running, 0, 1, test::paused, 0},
        {running, 5, 1, test::paused, 1},
        {running, 8, 0, test::cancelled, 0},
        {completing, 0, 0, test::paused, 0},
        {pausing, 0, 0, test::paused, 0},
        {pausing, 0, 1, test::paused, 1},
        {JobState::paused, 0, 1, test::paused, 1},
        {canceling, 0, 0, test::cancelled, 0},
        {idle, 0, 0, idleFound, 0},
        {JobState::completed, 0, 0, test::completed, 0},
        {JobState::cancelled, 0, 0, test::cancelled, 0},
        {error, 0, 0, test::failed, 0},
        // What no job ever says, of a disk that lies.
        {none, 8, 0, test::failed, 0},
        {created, 0, 0, test::failed, 0},
        {JobState{77}, 0, 0, test::failed, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << jobStateToString(static_cast<int>(row.left))
                                        << " pending " << row.pending << " manual " << row.manual);
        const auto job = this->makeJob();
        JobActivity& record = job->record();
        record.reset(static_cast<int32_t>(row.left), true);
        record.instanceId.fill(row.left == idle ? uint8_t{0} : uint8_t{7});
        record.pendingState = row.pending;
        record.pausedManually = row.manual;
        EXPECT_TRUE(job->init());
        EXPECT_EQ(job->state(), row.found);
        EXPECT_EQ(record.pausedManually, row.stillManual);
        EXPECT_EQ(record.pendingState, 0);
    }
}

}  // namespace
}  // namespace dorvo
