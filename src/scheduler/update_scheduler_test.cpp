#include "scheduler/update_scheduler.h"

#include "settings/options.h"
#include "support/log_capture.h"
#include "support/store_test.h"
#include "support/test_dispatcher.h"

namespace dorvo {
namespace {

using namespace test;

constexpr const char* semaphoreName = "Local\\dorvo_test_updater";

// A program beside this one that has the updater's name.
class UpdateScheduler : public StoreTest {
protected:
    UpdateScheduler() {
        SetEnvironmentVariableA("DORVO_TEST_UPDATER", semaphoreName);
        useOptions("{}");
        zone_.time = zone_.at("2026-01-05 09:00:00");
        dispatcher_.run();
    }
    ~UpdateScheduler() override {
        // One that still runs can be moved, not deleted.
        static int used = 0;
        const std::wstring old = L"used updater " + std::to_wstring(++used);
        MoveFileW(besideProgram(L"updater.exe").c_str(), besideProgram(old.c_str()).c_str());
        useOptions("{}");
    }

    static void useOptions(const char* text) {
        write(dataPath(L"\\options"), text);
        singleton<OptionsImpl>() = OptionsImpl();
    }
    static void install() {
        ASSERT_NE(CopyFileW(besideProgram(L"test_updater.exe").c_str(),
                            besideProgram(L"updater.exe").c_str(), FALSE),
                  0);
    }
    void pass(int64_t milliseconds) {
        late_ += milliseconds;
        dispatcher_.advance(zone_.time + late_ / 1000);
        late_ %= 1000;
    }
    bool updaterStarted(DWORD within = 60'000) const {
        return WaitForSingleObject(started_.get(), within) == WAIT_OBJECT_0;
    }
    // Not a second before.
    void expectStartIn(int64_t milliseconds) {
        pass(milliseconds - 1000);
        EXPECT_FALSE(updaterStarted(0));
        pass(1000);
        EXPECT_TRUE(updaterStarted());
    }

    KernelHandle started_{CreateSemaphoreA(nullptr, 0, 1000, semaphoreName)};
    TestZone zone_;
    TestDispatcher dispatcher_{zone_};
    int64_t late_ = 0;
    LogCapture log_;
};

TEST_F(UpdateScheduler, StartsTheUpdaterAtItsTimes) {
    const std::tuple<const char*, int64_t, int64_t> rows[] = {
        {"{}", 600'000, 14'400'000},
        {R"({"update_start_at":1000,"update_again_at":2000})", 1000, 2000},
        {R"({"update_start_at":0,"update_again_at":0})", 0, 120'000},
        {R"({"update_start_at":-5000,"update_again_at":-1})", -5000, 120'000},
    };
    install();
    for (const auto& [options, first, again] : rows) {
        SCOPED_TRACE(options);
        useOptions(options);
        Update_Scheduler updates(*TestDispatcher::port());
        EXPECT_TRUE(updates.schedule());
        if (first > 0) {
            expectStartIn(first);
        } else {
            EXPECT_TRUE(updaterStarted());
        }
        useOptions(R"({"update_again_at":7000})");
        expectStartIn(again);  // that of the object's beginning
        expectStartIn(again);
        EXPECT_TRUE(updates.unschedule());
    }
}

TEST_F(UpdateScheduler, AChangeOfTheClockOnlyStartsTheIntervalAndAWakeWhatIsDue) {
    install();
    Update_Scheduler updates(*TestDispatcher::port());
    EXPECT_TRUE(updates.schedule());
    dispatcher_.wake(zone_.time + 599);
    EXPECT_FALSE(updaterStarted(0));
    dispatcher_.wake(zone_.time + 1);
    EXPECT_TRUE(updaterStarted());
    EXPECT_FALSE(log_.begins("Update Scheduler: Reschedule.\n"));
    dispatcher_.setClock(zone_.time + 86'400);
    EXPECT_TRUE(log_.begins("Update Scheduler: Reschedule.\n"));
    expectStartIn(14'400'000);
}

TEST_F(UpdateScheduler, AFailureIsLoggedAndEndsTheScheduleOnlyWhereNothingCanBeArmed) {
    Update_Scheduler updates(*TestDispatcher::port());
    EXPECT_FALSE(updates.unschedule()) << "it never was";
    EXPECT_TRUE(log_.begins("Failed to unschedule the Update_Scheduler.1168, "));
    EXPECT_TRUE(updates.schedule());
    pass(600'000);
    EXPECT_TRUE(log_.begins("Failed to execute the updater, error-code = 2, "));
    install();
    expectStartIn(14'400'000);
    EXPECT_TRUE(updates.unschedule());
    EXPECT_TRUE(TestDispatcher::port()->close());
    EXPECT_FALSE(updates.schedule());
    EXPECT_TRUE(log_.begins("Failed to schedule the Update_Scheduler."));
    EXPECT_FALSE(updates.unschedule());
}

}  // namespace
}  // namespace dorvo
