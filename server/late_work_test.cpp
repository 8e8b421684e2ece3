#include "late_work.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

namespace dorvo {

namespace {

// Works with names, of which the first is held up, and what comes of them.
class Late : public testing::Test {
protected:
    Late() : work_({.threads = 1, .waiting = 2, .nice = 1, .full = status(503)}) {
        ask("first", "a");
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return begun_; });
    }
    ~Late() override { open(); }

    static WebReply status(int number) {
        WebReply reply;
        reply.status = number;
        return reply;
    }

    std::optional<LongPoll> ask(const std::string& name, const std::string& address) {
        return work_.run(
            address, "user",
            [this, name] {
                std::unique_lock lock(mutex_);
                begun_ = true;
                changed_.notify_all();
                changed_.wait(lock, [this] { return open_; });
                log_ += name + " done, ";
                return WebReply();
            },
            [this, name](const WebReply& reply) {
                const std::lock_guard lock(mutex_);
                log_ += name + " " + std::to_string(reply.status) + ", ";
                ++answers_;
                changed_.notify_all();
            });
    }

    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

    // What has happened, once there were so many answers.
    std::string said(int answers) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return answers_ >= answers; });
        return log_;
    }

    std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    bool begun_ = false;
    bool open_ = false;
    int answers_ = 0;
    std::string log_;
    LateWork work_;
};

TEST_F(Late, IsDoneInTurnAndForThoseWhoStillWait) {
    EXPECT_TRUE(ask("second", "b"));
    const auto third = ask("third", "b");
    EXPECT_FALSE(ask("crowd", "b"));
    EXPECT_TRUE(ask("stranger", "c"));
    EXPECT_EQ(said(2), "crowd 503, third 503, ");
    third->withdraw();
    open();
    EXPECT_EQ(
        said(5),
        "crowd 503, third 503, first done, first 200, second done, second 200, stranger done, "
        "stranger 200, ");
}

TEST_F(Late, GoesOnAfterOneThatCannotBeAnswered) {
    const auto bad = []() -> WebReply { throw std::bad_alloc(); };
    const auto good = [] { return WebReply(); };
    int answers = 1;
    for (const LateWork::Work& work : {LateWork::Work(bad), LateWork::Work(good)}) {
        auto connection = std::make_shared<int>();
        const std::weak_ptr<int> there = connection;
        work_.run("b", "user", work, [connection = std::move(connection)](const WebReply&) {
            throw std::bad_alloc();
        });
        ask("next", "c");
        open();
        said(++answers);
        EXPECT_TRUE(there.expired());
    }
    EXPECT_EQ(said(answers), "first done, first 200, next done, next 200, next done, next 200, ");
}

TEST_F(Late, AnswersNobodyWhoHasGone) {
    const auto second = ask("second", "b");
    ask("third", "c");
    second->withdraw();
    open();
    EXPECT_EQ(said(2), "first done, first 200, second done, third done, third 200, ");
}

}  // namespace

}  // namespace dorvo
