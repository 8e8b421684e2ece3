// The memory that the requests of a server may take together. Any thread.
#pragma once

#include <atomic>
#include <cstddef>

namespace dorvo {

class MemoryBudget {
public:
    explicit MemoryBudget(size_t bytes) : bytes_(bytes) {}
    MemoryBudget(const MemoryBudget&) = delete;
    MemoryBudget& operator=(const MemoryBudget&) = delete;

    // What one request takes of it: gives it back at the latest when it is destroyed. Not for
    // several threads at a time.
    class Share {
    public:
        explicit Share(MemoryBudget& budget) : budget_(budget) {}
        ~Share() { giveBack(); }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;

        // Makes it that large, if it isn't. False, and as it was, when there is not so much left.
        bool raise(size_t bytes) {
            if (bytes <= taken_) {
                return true;
            }
            const size_t more = bytes - taken_;
            size_t used = budget_.used_;
            do {
                if (used > budget_.bytes_ || more > budget_.bytes_ - used) {
                    return false;
                }
            } while (!budget_.used_.compare_exchange_weak(used, used + more));
            taken_ = bytes;
            return true;
        }
        // What is there already, whether or not the budget has it: others have less then.
        void count(size_t bytes) {
            budget_.used_ += bytes;
            taken_ += bytes;
        }
        void giveBack() {
            budget_.used_ -= taken_;
            taken_ = 0;
        }

    private:
        MemoryBudget& budget_;  // outlives it
        size_t taken_ = 0;
    };

private:
    const size_t bytes_;
    std::atomic<size_t> used_ = 0;
};

}  // namespace dorvo
