#include "job/jobplanner.h"

#include <functional>
#include <utility>
#include <vector>

#include "job/jobcmdqueue.h"
#include "job/jobfactory.h"
#include "job/jobmanager.h"
#include "job/scripted_job.h"
#include "notify/jobnotifymanager.h"
#include "support/log_capture.h"
#include "support/test_dispatcher.h"

namespace dorvo {
namespace {

using namespace test;

std::unique_ptr<BackupJobDefinition> dailyAt(int hour, int minute) {
    auto definition = std::make_unique<BackupJobDefinition>("j1", L"job", "alice");
    JobSchedule schedule;
    schedule.kind = ScheduleKind::daily;
    schedule.hour = hour;
    schedule.minute = minute;
    definition->setSchedule(schedule);
    return definition;
}

// Year 2026; a job that is due every day at 9:00.
class Planner : public StoreTest {
protected:
    Planner() : dispatcher_(zone_), schedules_(TestDispatcher::current, zone_) {
        createDirectories(dataPath(L"\\job\\j1"));
        EXPECT_TRUE(activity_.open("j1", true));
        given_.clear();
        schedules_.commands(
            [](const std::string&, const char* command) { given_.emplace_back(command); });
        dispatcher_.run();
        load("01-05 08:00:00");
    }
    ~Planner() override {
        schedules_.stop();
        activity_.close();
    }

    int64_t at(const std::string& time) const { return zone_.at("2026-" + time); }
    // The process begins.
    void load(const std::string& time) {
        if (planner_) {
            planner_->stop();
        }
        zone_.time = at(time);
        planner_ = std::make_unique<JobPlanner>("j1", &schedules_, &zone_);
        EXPECT_TRUE(plan(PlanReason::loaded));
    }
    bool plan(PlanReason reason) { return planner_->plan(reason, *definition_, activity_); }
    void due(const std::string& time) { activity_->nextRunTime = localCount(zone_, at(time)); }
    std::string onRecord() const {
        return activity_->nextRunTime == 0
                   ? "never"
                   : zone_.text(standardInstant(zone_, activity_->nextRunTime)).substr(5);
    }
    // Plans, and gives what is on record then.
    std::string planned(PlanReason reason) {
        EXPECT_TRUE(plan(reason));
        return onRecord();
    }
    // The commands that the timer has given since the last call.
    Names fired() {
        dispatcher_.fire();
        return std::exchange(given_, {});
    }

    Names firedAt(const std::string& time) {
        dispatcher_.advance(at(time));
        return fired();
    }

    static inline Names given_;  // added to on the dispatcher's worker, read when it is idle
    TestZone zone_;
    TestDispatcher dispatcher_;
    ScheduleManagerImpl schedules_;
    std::unique_ptr<BackupJobDefinition> definition_ = dailyAt(9, 0);
    JobActivityHandle activity_;
    std::unique_ptr<JobPlanner> planner_;
    LogCapture log_;
};

TEST_F(Planner, PlansTheNextRunWhenOneStarts) {
    EXPECT_EQ(onRecord(), "01-05 09:00:00");
    EXPECT_EQ(fired(), Names{});
    EXPECT_TRUE(plan(PlanReason::started)) << "by hand, before it is due";
    EXPECT_EQ(onRecord(), "01-05 09:00:00");
    EXPECT_EQ(firedAt("01-05 09:00:00"), Names{"start"});
    EXPECT_EQ(planned(PlanReason::started), "01-06 09:00:00");
    EXPECT_EQ(planned(PlanReason::ended), "01-06 09:00:00");
    EXPECT_EQ(firedAt("01-06 09:00:00"), Names{"start"});
    EXPECT_TRUE(plan(PlanReason::ended)) << "another command took the place of the start";
    EXPECT_EQ(onRecord(), "01-07 09:00:00");
    definition_->setSchedule({});
    EXPECT_EQ(planned(PlanReason::loaded), "never");
    EXPECT_EQ(firedAt("01-08 09:00:00"), Names{});
}

TEST_F(Planner, StartsWhatFellDueWithoutAStart) {
    struct Row {
        const char* name;
        PlanReason reason;
        bool runMissed;
        int32_t state;
        bool pausedManually;
        bool starts;
    };
    constexpr Row rows[] = {
        {"the machine was off", PlanReason::loaded, true, completed, false, true},
        {"off, and not to be made up for", PlanReason::loaded, false, completed, false, false},
        {"off, and the user has paused the job", PlanReason::loaded, true, paused, true, false},
        {"off, while the job waited for the network", PlanReason::loaded, true, paused, false,
         true},
        {"off, after a run that ended before a pause", PlanReason::loaded, true, completed, true,
         true},
        {"the clock was set on", PlanReason::asked, false, completed, false, true},
        {"it is being started", PlanReason::started, true, completed, false, false},
        {"a run has ended", PlanReason::ended, true, completed, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        due("01-07 09:00:00");
        load("01-05 10:00:00");
        definition_->setRunMissed(row.runMissed);
        activity_->state = row.state;
        activity_->pausedManually = row.pausedManually ? 1 : 0;
        due("01-05 09:00:00");
        EXPECT_TRUE(plan(row.reason));
        EXPECT_EQ(fired(), row.starts ? Names{"start"} : Names{});
        EXPECT_EQ(onRecord(), row.starts ? "01-05 09:00:00" : "01-06 09:00:00")
            << "the record keeps what is still to be started";
        EXPECT_EQ(planned(PlanReason::started), "01-06 09:00:00");
        EXPECT_EQ(fired(), Names{}) << "once";
    }
}

TEST_F(Planner, ARefusedStartIsPlannedPastAndMadeUpForLater) {
    EXPECT_EQ(firedAt("01-05 09:00:00"), Names{"start"});
    EXPECT_TRUE(plan(PlanReason::refused));
    EXPECT_EQ(fired(), Names{});
    EXPECT_EQ(firedAt("01-06 09:00:00"), Names{"start"}) << "the schedule goes on";
    EXPECT_EQ(planned(PlanReason::refused), "01-05 09:00:00");
    load("01-06 12:00:00");
    EXPECT_EQ(fired(), Names{"start"});
}

TEST_F(Planner, FollowsTheClock) {
    struct Row {
        const char* set;
        const char* next;
    };
    EXPECT_EQ(firedAt("01-05 09:00:00"), Names{"start"});
    EXPECT_TRUE(plan(PlanReason::started));
    constexpr Row rows[] = {
        {"01-05 08:50:00", "01-06 09:00:00"},  // a start is not repeated
        {"01-04 10:00:00", "01-06 09:00:00"},
        {"01-04 08:00:00", "01-04 09:00:00"},  // by more than a day: the clock was wrong
        {"01-03 12:00:00", "01-04 09:00:00"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.set);
        dispatcher_.setClock(at(row.set));
        EXPECT_EQ(fired(), Names{"do_schedule"});
        EXPECT_EQ(planned(PlanReason::asked), row.next);
    }
    dispatcher_.setClock(at("01-04 15:00:00"));
    EXPECT_EQ(fired(), Names{"do_schedule"});
    EXPECT_TRUE(plan(PlanReason::asked));
    EXPECT_EQ(fired(), Names{"start"}) << "set on past the due time";
}

// Nights in which the season changes, with and without the dispatcher hearing of it.
TEST_F(Planner, StartsOnceInANightThatLosesOrRepeatsAnHour) {
    for (const char* sunday : {"03-08", "11-01"}) {
        for (const bool told : {true, false}) {
            for (int hour = 0; hour < 5; ++hour) {
                SCOPED_TRACE(testing::Message() << sunday << " " << hour << ":30 " << told);
                definition_ = dailyAt(hour, 30);
                activity_->nextRunTime = 0;
                const bool autumn = sunday[0] == '1';
                const std::string season = autumn ? "d" : "";
                load(sunday + std::string(" 00:00:00") + season);
                const int64_t change = at(sunday + std::string(" 02:00:00") + season);
                int starts = 0;
                for (int64_t time = zone_.time; time < change + int64_t{6} * 3600; time += 900) {
                    if (told && time == change) {
                        dispatcher_.setClock(time);
                    }
                    dispatcher_.advance(time);
                    for (Names all = fired(); !all.empty(); all = fired()) {
                        starts += all[0] == "start" ? 1 : 0;
                        EXPECT_TRUE(
                            plan(all[0] == "start" ? PlanReason::started : PlanReason::asked));
                    }
                }
                EXPECT_EQ(starts, 1);
            }
        }
    }
}

TEST_F(Planner, AClockThatFailsCostsNothing) {
    zone_.broken = true;
    EXPECT_FALSE(plan(PlanReason::asked));
    zone_.broken = false;
    EXPECT_EQ(onRecord(), "01-05 09:00:00");
    EXPECT_EQ(firedAt("01-05 09:00:00"), Names{"start"});
    planner_->stop();
    EXPECT_FALSE(plan(PlanReason::started));
    EXPECT_EQ(schedules_.FindSchedule("j1"), nullptr);
}

TEST(MakeScheduleHelper, TakesTheFieldsOfItsKind) {
    TestZone zone(false);
    zone.time = zone.at("2026-01-05 08:00:00");  // a Monday
    const std::pair<ScheduleKind, const char*> rows[] = {
        {ScheduleKind::daily, "2026-01-11 10:11:12"},
        {ScheduleKind::weekly, "2026-01-14 10:11:12"},
        {ScheduleKind::monthly, "2026-02-03 10:11:12"},
    };
    JobSchedule schedule{ScheduleKind::manual, 0, 3, 10, 11, 12};
    EXPECT_EQ(makeScheduleHelper(schedule, zone), nullptr);
    schedule.start = localCount(zone, zone.at("2026-01-10 12:00:00"));
    for (const auto& [kind, next] : rows) {
        schedule.kind = kind;
        const auto helper = makeScheduleHelper(schedule, zone);
        EXPECT_EQ(zone.text(helper->TimeOfNextScheduleImpl(0)), next);
        EXPECT_EQ(helper->kind(), static_cast<int>(kind));
    }
    // A definition's start is what the wall shows: the first run comes on the same summer's day.
    TestZone summer;
    summer.time = summer.at("2026-07-15 08:30:00d");
    const JobSchedule made{ScheduleKind::monthly, localCount(summer, summer.time), 15, 9, 0, 0};
    EXPECT_EQ(summer.text(makeScheduleHelper(made, summer)->TimeOfNextScheduleImpl(0)),
              "2026-07-15 09:00:00d");
    schedule.kind = ScheduleKind::once;
    EXPECT_EQ(makeScheduleHelper(schedule, zone), nullptr);
}

// The manager, the queue and a job whose storage is scripted; the time is the test's.
class ScheduledJob : public ScriptedJobTest, private JobNotifyObserver {
protected:
    ScheduledJob()
        : JobNotifyObserver(""), dispatcher_(zone_), schedules_(TestDispatcher::current, zone_) {
        current_ = this;
        write(sources() + L"\\a", "content");
        schedules_.commands(
            [](const std::string& id, const char* command) { current_->queue_.add(id, command); });
        singleton<JobNotifyManagerImpl>().registerObserver(this);
        setJobMaker([](std::unique_ptr<JobDefinition>& definition) {
            return current_->make(std::move(definition));
        });
        JobCmdQueue::carriedOutBy(&manager());
        dispatcher_.run();
        zone_.time = zone_.at("2026-01-05 08:00:00");
    }
    ~ScheduledJob() override {
        schedules_.stop();
        queue_.stop();
        manager().close();
        setJobMaker(nullptr);
        singleton<JobNotifyManagerImpl>().unregisterObserver(this);
    }

    static JobManagerImpl& manager() { return singleton<JobManagerImpl>(); }
    static void submit(std::unique_ptr<BackupJobDefinition> definition) {
        definition->setSource({sources()});
        ASSERT_TRUE(manager().submitJob(definition.release()));
    }
    // Month, day, hour and minute.
    static int nextRun() {
        int date = 0;
        int time = 0;
        manager().job("j1")->nextRunTime(date, time);
        return date % 10'000 * 10'000 + time / 100;
    }
    // Waits for the end of a run and of the command that has started it.
    void awaitRun() {
        ASSERT_TRUE(ended_.wait());
        const std::lock_guard guard(manager().locker());
        EXPECT_EQ(manager().job("j1")->lastRunState(), completed);
    }

    TestZone zone_;
    TestDispatcher dispatcher_;
    ScheduleManagerImpl schedules_;
    JobCmdQueue queue_;
    std::function<void()> meanwhile_;  // while the next job is made

private:
    std::unique_ptr<Job> make(std::unique_ptr<JobDefinition> definition) {
        if (meanwhile_) {
            std::exchange(meanwhile_, nullptr)();
        }
        BackupJob::Services services;
        services.snapshotsEnabled = [] { return false; };
        services.incrementCheck = [this] { return std::make_unique<ScriptedCheck>(script_); };
        services.schedules = &schedules_;
        services.clock = &zone_;
        return std::make_unique<ScriptedBackup>(script_, std::move(definition),
                                                std::move(services));
    }
    bool deliver(const std::string& text) override {
        if (text.find(R"("state":"completed")") != std::string::npos) {
            ended_.set();
        }
        return true;
    }

    static inline ScheduledJob* current_ = nullptr;
    Signal ended_{true};
};

TEST_F(ScheduledJob, RunsFromItsDefinitionAlone) {
    submit(dailyAt(9, 0));
    EXPECT_EQ(nextRun(), 105'0900);
    dispatcher_.advance(zone_.at("2026-01-05 09:00:00"));
    awaitRun();
    EXPECT_EQ(script_.stored(), (Names{"sources", "a"}));
    EXPECT_EQ(nextRun(), 106'0900);
    dispatcher_.setClock(zone_.at("2026-01-06 10:00:00"));
    awaitRun();
    EXPECT_EQ(script_.count("end"), 2U) << "planned anew by the change of the clock";
    EXPECT_EQ(nextRun(), 107'0900);

    // A due time passes while the machine is off.
    manager().close();
    EXPECT_EQ(schedules_.FindSchedule("j1"), nullptr);
    zone_.time = zone_.at("2026-01-09 12:00:00");
    EXPECT_TRUE(manager().open());
    awaitRun();
    EXPECT_EQ(nextRun(), 110'0900);
}

// As one comes that is due at once, while other jobs are still being loaded.
TEST_F(ScheduledJob, RunsByACommandThatCameBeforeTheManagerHadOpened) {
    submit(dailyAt(9, 0));
    manager().close();
    JobCmdQueue::carriedOutBy(nullptr);
    meanwhile_ = [&] {
        queue_.add("j1", "start");
        log_->await("JobCmdQueue: execute command \"start\" for job j1.");
    };
    EXPECT_TRUE(manager().open());
    awaitRun();
}

TEST_F(ScheduledJob, ForgetsItsScheduleWithItsDefinitionAndItself) {
    submit(dailyAt(9, 0));
    submit(dailyAt(7, 15));
    EXPECT_EQ(nextRun(), 106'0715);
    auto manual = dailyAt(9, 0);
    manual->setSchedule({});
    submit(std::move(manual));
    EXPECT_EQ(nextRun(), 0);
    EXPECT_EQ(schedules_.FindSchedule("j1"), nullptr);
    submit(dailyAt(9, 0));
    EXPECT_TRUE(manager().command("do_schedule", "j1"));
    EXPECT_FALSE(manager().command("no such command", "j1"));
    EXPECT_TRUE(manager().lockJob("j1"));
    zone_.time = zone_.at("2026-01-05 10:00:00");
    EXPECT_FALSE(manager().startJob("j1"));
    EXPECT_EQ(nextRun(), 105'0900) << "what was due stays on record while the job is locked";
    EXPECT_NE(schedules_.FindSchedule("j1"), nullptr);
    EXPECT_TRUE(manager().removeJob("j1"));
    manager().close();
    EXPECT_EQ(schedules_.FindSchedule("j1"), nullptr);
    EXPECT_TRUE(script_.calls.empty());
}

}  // namespace
}  // namespace dorvo
