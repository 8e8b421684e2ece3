// A mutex whose holder can leave it to those who wait for it.
//
// Who lets a mutex go and takes it again at once has it before them, as a rule. Any thread.
#pragma once

#include <algorithm>
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

    // What a holder owes those who wait for it.
    struct Debt {
        uint64_t asked = 0;  // until then; 0 where nobody waits
        Clock::duration time{};
    };
    // Of its holder, who has it since then. What stood still for the disk does not count for more.
    [[nodiscard]] Debt debt(Clock::time_point since) const {
        constexpr Clock::duration most = std::chrono::milliseconds(50);
        return {waiting() != 0 ? asked_.load() : 0, std::min(Clock::now() - since, most)};
    }

    // By who has just let it go, and will want it again: returns when those who waited have had it,
    // and were there any, not before they have had as much time.
    void giveWay(const Debt& debt) {
        if (debt.asked == 0) {
            return;
        }
        const auto until = Clock::now() + debt.time;
        for (uint64_t served = served_; served < debt.asked; served = served_) {
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
