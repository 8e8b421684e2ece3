#include "job/jobcmdqueue.h"

#include <gtest/gtest.h>

#include <regex>

#include "support/log_capture.h"
#include "support/test_job.h"

namespace dorvo {
namespace {

using namespace test;

// The job "gate" holds up the dispatch thread while it starts, until open() is called.
class CommandQueue : public testing::Test {
protected:
    CommandQueue() {
        TestJob::plans["gate"].run = [this](TestJob& job) {
            job.activity()->state = value(JobState::starting);
            closed_.set();
            EXPECT_TRUE(open_.wait());
            job.activity()->state = value(JobState::completed);
            return 0UL;
        };
        TestJob::plans["~last"].run = [this](TestJob&) {
            last_.set();
            return 0UL;
        };
        submit("gate");
        submit("~last");
    }

    static void submit(const char* id) {
        EXPECT_TRUE(JobGround::manager()->submitJob(backupDefinition(id).release()));
    }
    void closeGate() {
        queue_.add("gate", "start");
        ASSERT_TRUE(closed_.wait());
    }
    // Lets the thread go on and waits until it has carried out everything: "~last" comes last.
    void openGate() {
        queue_.add("~last", "start");
        open_.set();
        ASSERT_TRUE(last_.wait());
    }
    // What was carried out, as "id command".
    Names executed() const {
        static const std::regex form(R"x(JobCmdQueue: execute command "(.*)" for job (.*)\.\n)x");
        Names result;
        for (const LogLine& line : log_.lines()) {
            std::smatch match;
            if (std::regex_match(line.text, match, form) && match[2] != "~last") {
                result.push_back(match.str(2) + " " + match.str(1));
            }
        }
        return result;
    }

    JobGround ground_;
    LogCapture log_;
    Signal closed_;
    Signal open_;
    Signal last_;
    JobCmdQueue queue_;
};

TEST_F(CommandQueue, RunsTheSmallestIdFirstAndTheLatestCommandOnly) {
    closeGate();
    queue_.add("b", "start");
    queue_.add("a", "pause");
    queue_.add("a", "stop");
    queue_.add("B", "resume");
    queue_.add("c", "do_schedule");
    queue_.add("c", "no such command");
    openGate();
    EXPECT_EQ(executed(),
              (Names{"gate start", "B resume", "a stop", "b start", "c no such command"}));
}

TEST_F(CommandQueue, CarriesOutEachCommand) {
    submit("a");
    TestJob* job = JobGround::job("a");
    queue_.add("A", "start");
    ASSERT_TRUE(job->ran.wait());
    queue_.add("a", "pause");
    ASSERT_TRUE(job->wait(60'000));
    EXPECT_EQ(job->state(), value(JobState::paused));
    EXPECT_EQ(job->activity()->pausedManually, 1U);
    queue_.add("a", "resume");
    ASSERT_TRUE(job->ran.wait());
    ASSERT_TRUE(job->pause(false));
    ASSERT_TRUE(job->wait(60'000));
    queue_.addResumeAfterError("a");
    ASSERT_TRUE(job->ran.wait());
    queue_.add("a", "pause");
    ASSERT_TRUE(job->wait(60'000));
    submit("b");
    closeGate();
    queue_.addResumeAfterError("a");
    queue_.add("b", "do_schedule");
    queue_.add("nobody", "start");
    openGate();
    EXPECT_EQ(job->state(), value(JobState::paused)) << "the user's pause stays";
    EXPECT_EQ(JobGround::job("b")->commands, Names{"do_schedule"});
    queue_.add("a", "resume");
    ASSERT_TRUE(job->ran.wait());
    queue_.add("a", "stop");
    ASSERT_TRUE(job->wait(60'000));
    EXPECT_EQ(job->state(), value(JobState::cancelled));
}

TEST_F(CommandQueue, StopsOnce) {
    submit("a");
    JobCmdQueue::carriedOutBy(nullptr);
    queue_.add("a", "start");
    log_.await("JobCmdQueue: nobody carries out command \"start\" for job a.");
    queue_.stop();
    queue_.stop();
    queue_.add("a", "start");
    EXPECT_EQ(JobGround::job("a")->state(), value(JobState::idle));
}

}  // namespace
}  // namespace dorvo
