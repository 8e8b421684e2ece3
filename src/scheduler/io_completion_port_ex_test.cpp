#include "scheduler/io_completion_port_ex.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "support/fails_with.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using test::Signal;

constexpr uint64_t startTime = 1'000'000'000;
constexpr uint64_t hour = 3600 * ticksPerSecond;  // no wait of the worker ends by itself
std::atomic<uint64_t> currentTime{startTime};
uint64_t testClock() {
    return currentTime;
}

using Call = std::function<void(uint64_t)>;

class Handler : public Timeout_Handler {
public:
    explicit Handler(Call body) : body_(std::move(body)) {}
    void handle_timeout(uint64_t arg) override { body_(arg); }

private:
    Call body_;
};

// Gets the value that was posted to it.
class Receiver : public Io_Completion_Port::Event {
public:
    explicit Receiver(Call body) : body_(std::move(body)) {}
    void completion(DWORD, ULONG_PTR key, OVERLAPPED* overlapped) override {
        EXPECT_EQ(key, reinterpret_cast<ULONG_PTR>(this));
        body_(reinterpret_cast<uintptr_t>(overlapped));
    }

private:
    Call body_;
};

// A dispatcher on a clock that the test sets.
class Dispatcher : public testing::Test {
protected:
    Dispatcher() { currentTime = startTime; }
    ~Dispatcher() override { EXPECT_TRUE(port_.close()); }

    void run() {
        ASSERT_TRUE(port_.open());
        ASSERT_TRUE(port_.activate());
    }
    bool post(Receiver& receiver, uintptr_t value = 0) {
        return port_.post(0, &receiver, reinterpret_cast<OVERLAPPED*>(value));
    }
    // True when the worker has dealt with everything posted before.
    bool caughtUp() {
        Signal reached;
        Receiver receiver([&](uint64_t) { reached.set(); });
        return post(receiver) && reached.wait();
    }

    Io_Completion_Port_Ex port_{testClock};
};

TEST_F(Dispatcher, ASecondTimerOfAHandlerLeavesTheFirstAlone) {
    std::vector<uint64_t> fired;
    Handler handler([&](uint64_t arg) { fired.push_back(arg); });
    run();
    port_.schedule_timer(&handler, startTime + 2 * hour);
    port_.schedule_timer(&handler, startTime + hour);
    EXPECT_TRUE(caughtUp());
    currentTime = startTime + 3 * hour;
    EXPECT_EQ(port_.cancel_timer(&handler), 0) << "cancels the second, and wakes for the first";
    EXPECT_TRUE(caughtUp());
    EXPECT_EQ(fired, std::vector<uint64_t>{startTime + 2 * hour});
}

TEST_F(Dispatcher, AClockChangeReachesEachPendingHandlerOnce) {
    run();
    EXPECT_TRUE(port_.notify_time_change()) << "nothing is pending";
    EXPECT_TRUE(caughtUp());
    std::vector<std::pair<int, uint64_t>> calls;
    Handler gone([&](uint64_t arg) { calls.emplace_back(3, arg); });
    Handler a([&](uint64_t arg) {
        calls.emplace_back(1, arg);
        EXPECT_EQ(port_.cancel_timer(&a), -1) << "its timer was dropped";
        EXPECT_EQ(port_.cancel_timer(&gone), 0) << "another's was not yet";
        port_.schedule_timer(&a, startTime + 1000);
    });
    Handler b([&](uint64_t arg) { calls.emplace_back(2, arg); });
    port_.schedule_timer(&gone, startTime + 3000);
    port_.schedule_timer(&b, startTime + 2000);
    port_.schedule_timer(&a, startTime + 1500);
    EXPECT_TRUE(port_.notify_time_change());
    EXPECT_TRUE(caughtUp());
    EXPECT_EQ(calls, (std::vector<std::pair<int, uint64_t>>{{1, UINT64_MAX}, {2, UINT64_MAX}}));
    EXPECT_EQ(port_.cancel_timer(&a), 0);
    EXPECT_EQ(port_.cancel_timer(&b), -1) << "it has not scheduled itself again";
}

TEST_F(Dispatcher, HandlersRunUnderItsLockAndPacketsDoNot) {
    Signal inside;
    Signal leave;
    bool finished = false;
    const Call body = [&](uint64_t) {
        inside.set();
        EXPECT_TRUE(leave.wait());
        finished = true;
    };
    Handler handler(body);
    Receiver receiver(body);
    run();
    ASSERT_TRUE(post(receiver) && inside.wait());
    EXPECT_GT(port_.schedule_timer(&handler, startTime + 10), 0);
    EXPECT_EQ(port_.cancel_timer(&handler), 0);
    leave.set();
    EXPECT_TRUE(caughtUp());
    finished = false;
    inside.reset();
    leave.reset();
    port_.schedule_timer(&handler, startTime);
    ASSERT_TRUE(inside.wait());
    std::thread canceller([&] {
        leave.set();
        EXPECT_EQ(port_.cancel_timer(&handler), -1);
        EXPECT_TRUE(finished) << "a call in progress is waited for";
    });
    canceller.join();
}

TEST_F(Dispatcher, ReplacesThePortUnderAWaitingWorkerAndLosesNothing) {
    std::vector<uint64_t> got;
    int fired = 0;
    Receiver receiver([&](uint64_t value) { got.push_back(value); });
    Handler handler([&](uint64_t) { ++fired; });
    ASSERT_TRUE(port_.open());
    std::vector<uint64_t> expected;
    for (uintptr_t i = 1; i <= 250; ++i) {
        if (i == 50) {
            port_.schedule_timer(&handler, startTime + 100);
            ASSERT_TRUE(port_.activate()) << "what was posted so far has moved on to this port";
        }
        expected.push_back(i);
        EXPECT_TRUE(post(receiver, i));
        if (i > 50 && i % 3 == 0) {
            EXPECT_TRUE(caughtUp());
        }
        EXPECT_TRUE(port_.open());
    }
    EXPECT_TRUE(caughtUp());
    EXPECT_EQ(got, expected);
    EXPECT_EQ(fired, 0);
    currentTime = startTime + 100;
    EXPECT_TRUE(port_.notify_wake() && caughtUp());
    EXPECT_EQ(fired, 1) << "a timer outlives the ports";
}

TEST_F(Dispatcher, CloseDeliversWhatIsStillQueued) {
    int delivered = 0;
    Signal inside;
    Signal leave;
    Receiver receiver([&](uint64_t) { ++delivered; });
    Receiver slow([&](uint64_t) {
        inside.set();
        leave.wait();
    });
    ASSERT_TRUE(port_.open());
    EXPECT_TRUE(post(receiver) && port_.close());
    EXPECT_EQ(delivered, 1) << "without a worker";
    EXPECT_FAILS(ERROR_INVALID_HANDLE, post(receiver));
    run();
    EXPECT_TRUE(post(slow) && inside.wait() && post(receiver) && post(receiver));
    std::thread closer([&] { EXPECT_TRUE(port_.close()); });
    leave.set();
    closer.join();
    EXPECT_EQ(delivered, 3);
}

TEST_F(Dispatcher, HasOneWorkerThatCanBeStartedAgain) {
    EXPECT_TRUE(port_.close()) << "nothing is open";
    EXPECT_TRUE(port_.activate() && port_.wait()) << "a worker without a port ends";
    run();
    EXPECT_FALSE(port_.activate());
    bool joined = true;
    Receiver receiver([&](uint64_t) { joined = port_.close() || port_.wait(); });
    EXPECT_TRUE(post(receiver) && caughtUp());
    EXPECT_FALSE(joined) << "the worker cannot join itself";
    std::thread waiter([&] { EXPECT_TRUE(port_.wait()); });
    EXPECT_TRUE(port_.close());
    waiter.join();
    run();
    EXPECT_TRUE(caughtUp());
}

}  // namespace
}  // namespace dorvo
