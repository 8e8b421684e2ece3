#include "catalog/turn_mutex.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace dorvo {

namespace {

TEST(TurnMutex, GivesWayToThoseWhoWait) {
    TurnMutex mutex;
    std::string turns;
    for (int round = 0; round < 20; ++round) {
        mutex.lock();
        const auto since = TurnMutex::Clock::now();
        std::thread other([&] {
            const std::lock_guard lock(mutex);
            turns += 'o';
        });
        while (mutex.waiting() == 0) {
            std::this_thread::yield();
        }
        mutex.unlock();
        mutex.giveWay(since);
        mutex.lock();
        turns += 'h';
        mutex.unlock();
        other.join();
    }
    EXPECT_EQ(turns, "ohohohohohohohohohohohohohohohohohohohoh");
    mutex.giveWay({});  // nobody waits
}

}  // namespace

}  // namespace dorvo
