// The memory that the requests of a server may take together, and those of one client. Any thread.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace dorvo {

class MemoryBudget {
public:
    MemoryBudget(size_t bytes, size_t bytesOfClient)
        : bytes_(bytes), bytesOfClient_(bytesOfClient) {}
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

        // Gives back, and is that client's from now on. Empty: of many, who have no bound.
        void setClient(std::string client);
        // Makes it that large, if it isn't. False, and as it was, when there is not so much left.
        bool raise(size_t bytes);
        // What is there already, whether or not the budget has it: others have less then.
        void count(size_t bytes);
        void giveBack();
        [[nodiscard]] size_t taken() const { return taken_; }
        // The client has more than may be its own.
        [[nodiscard]] bool clientHasTooMuch() const;

    private:
        MemoryBudget& budget_;  // outlives it
        std::string client_;
        size_t taken_ = 0;
    };

private:
    // Under the lock.
    [[nodiscard]] size_t takenBy(const std::string& client) const;
    void add(const std::string& client, size_t bytes);

    const size_t bytes_;
    const size_t bytesOfClient_;
    mutable std::mutex mutex_;  // guards what follows
    size_t used_ = 0;
    std::map<std::string, size_t> ofClient_;  // of those who have any
};

}  // namespace dorvo
