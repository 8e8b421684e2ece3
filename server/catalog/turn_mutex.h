// A mutex whose holder can leave it to those who wait for it.
//
// Who lets a mutex go and takes it again at once has it before them, as a rule. Any thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>

namespace dorvo {

class TurnMutex {
public:
    using Clock = std::chrono::steady_clock;

    void lock() {
        asked_.fetch_add(1);
        mutex_.lock();
        served_.fetch_add(1);
        served_.notify_all();
    }
    void unlock() { mutex_.unlock(); }

    // By who has had it since then, and will want it again: returns when as many others have had it
    // as are waiting for it, and were there any, not before they have had as much time.
    void giveWay(Clock::time_point since) {
        const auto took = Clock::now() - since;
        const uint64_t asked = asked_;
        uint64_t served = served_;
        if (served >= asked) {
            return;
        }
        const auto until = Clock::now() + took;
        for (; served < asked; served = served_) {
            served_.wait(served);
        }
        std::this_thread::sleep_until(until);
    }

    [[nodiscard]] uint64_t waiting() const {
        const uint64_t served = served_;
        return asked_ - served;
    }

private:
    std::mutex mutex_;
    // How often it has been asked for, and had.
    std::atomic<uint64_t> asked_ = 0;
    std::atomic<uint64_t> served_ = 0;
};

}  // namespace dorvo
