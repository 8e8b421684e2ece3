// Requests that are written before the last ones are answered, on the floor's one connection.
#pragma once

#include "floor_client.h"

#include <deque>
#include <exception>
#include <functional>
#include <thread>
#include <utility>

namespace dorvo::bench {

// What threads change and wait for. Of the system's own: the library's costs calls to Wine's
// server.
class Monitor {
public:
    template <class Work>
    auto locked(Work work) {
        AcquireSRWLockExclusive(&lock_);
        const Leave leave{*this};
        return work();
    }

    // Waits until ready(), and then does the work under the same lock.
    template <class Ready, class Work>
    auto when(Ready ready, Work work) {
        AcquireSRWLockExclusive(&lock_);
        const Leave leave{*this};
        while (!ready())
            SleepConditionVariableSRW(&changed_, &lock_, INFINITE, 0);
        return work();
    }

private:
    struct Leave {
        Monitor& monitor;
        ~Leave() {
            ReleaseSRWLockExclusive(&monitor.lock_);
            WakeAllConditionVariable(&monitor.changed_);
        }
    };

    SRWLOCK lock_ = SRWLOCK_INIT;
    CONDITION_VARIABLE changed_ = CONDITION_VARIABLE_INIT;
};

// One thread writes, one of its own takes the answers, in the order of the requests. Small requests
// go out together. What fails there is thrown by the next call here.
class Pipe {
public:
    using Taker = std::function<void(std::string)>;  // called on the answers' thread
    static constexpr std::size_t depth = 256;

    explicit Pipe(Client& client) : client_(client), answers_([this] { takeAnswers(); }) {}
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    // Waits for the answers that are still to come.
    ~Pipe() {
        try {
            flush();
        } catch (const std::exception&) {
            // Then the answers end too.
        }
        monitor_.locked([this] { stopped_ = true; });
        answers_.join();
    }

    void post(const std::string& path, const json::object& body, Taker taker = {}) {
        const std::string text = json::serialize(body);
        add(std::move(taker), {client_.head(path, "application/json", text.size()), text});
    }

    void post(const std::string& path, const std::string& type, const std::string& prefix,
              std::string_view data, const std::string& suffix) {
        add({}, {client_.head(path, type, prefix.size() + data.size() + suffix.size()), prefix,
                 data, suffix});
    }

    // What the takers share with the poster is changed and looked at under this lock.
    template <class Work>
    auto locked(Work work) {
        return monitor_.locked(work);
    }

    // Waits until ready(), which is asked again after each answer.
    template <class Ready>
    void await(Ready ready) {
        if (!monitor_.locked(ready))
            flush();
        const std::exception_ptr failure =
            monitor_.when([&] { return failure_ || ready(); }, [this] { return failure_; });
        if (failure)
            std::rethrow_exception(failure);
    }

    // What was posted so far goes out.
    void flush() {
        if (!out_.empty())
            client_.write({out_});
        out_.clear();
    }

    // Until all is answered.
    void drain() {
        await([this] { return takers_.empty(); });
    }

private:
    static constexpr std::size_t together = 65536;

    void add(Taker taker, std::initializer_list<std::string_view> texts) {
        await([this] { return takers_.size() < depth; });
        monitor_.locked([&] { takers_.push_back(std::move(taker)); });
        for (const std::string_view text : texts)
            out_ += text;
        if (out_.size() >= together)
            flush();
    }

    void takeAnswers() {
        try {
            while (monitor_.when([this] { return !takers_.empty() || stopped_; },
                                 [this] { return !takers_.empty(); })) {
                std::string body = client_.answer();
                const Taker taker = monitor_.locked([this] { return takers_.front(); });
                if (taker)
                    taker(std::move(body));
                monitor_.locked([this] { takers_.pop_front(); });
            }
        } catch (...) {
            monitor_.locked([this] { failure_ = std::current_exception(); });
        }
    }

    Client& client_;
    Monitor monitor_;  // guards the next three
    std::deque<Taker> takers_;
    std::exception_ptr failure_;
    bool stopped_ = false;
    std::string out_;
    std::thread answers_;
};

}  // namespace dorvo::bench
