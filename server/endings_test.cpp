// The ends of backups: who waits for them, and what a death in the middle leaves.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "catalog/sqlite.h"
#include "common/service_error.h"
#include "endpoints/instance_locks.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace json = boost::json;

// A disk that takes as long as the test likes.
class SlowBlocks : public FileBlockStore {
public:
    using FileBlockStore::FileBlockStore;

    bool sync(int64_t container, int64_t length) override {
        {
            std::unique_lock lock(mutex_);
            arrived_.insert(container);
            changed_.notify_all();
            changed_.wait(lock, [this] { return open_; });
        }
        return FileBlockStore::sync(container, length);
    }

    // The containers that are being synced, once they are so many.
    std::set<int64_t> waitFor(size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return arrived_.size() >= count; });
        return arrived_;
    }
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<int64_t> arrived_;
    bool open_ = false;
};

class SlowEnds : public ServiceFixture {
protected:
    static constexpr size_t backups = 3 * endingThreads;

    // Backups "i1" and so on, each of one file; the instance's number is the name's.
    void SetUp() override {
        ServiceFixture::SetUp();
        for (size_t i = 1; i <= backups; ++i) {
            const std::string name = "i" + std::to_string(i);
            ASSERT_EQ(start(name), 200);
            put(name, "file", name);
        }
        server.reset();
        catalog_.emplace((data / "catalog.db").string());
        blocks_.emplace(data / "packages");
        room_.emplace(data, 0, DiskRoom::Source());
        dispatcher_.emplace(*catalog_, *blocks_, *room_, 1000);
        http_.emplace(*dispatcher_, "127.0.0.1", 0, HttpLimits{}, HttpThreads{1, 2},
                      [](const std::string&) {});
    }
    void TearDown() override {
        if (blocks_) {
            blocks_->open();
        }
        http_.reset();
        dispatcher_.reset();
        blocks_.reset();
        catalog_.reset();
        ServiceFixture::TearDown();
    }
    [[nodiscard]] uint16_t port() const override { return http_ ? http_->port() : server->port(); }

    [[nodiscard]] std::string endRequest(const std::string& instance) const {
        const json::object body{{"jobinstanceid", instance}, {"endtime", "now"}};
        return Client::request(endJobPath, json::serialize(body), alice);
    }

    std::optional<SqliteCatalog> catalog_;
    std::optional<SlowBlocks> blocks_;
    std::optional<DiskRoom> room_;
    std::optional<Dispatcher> dispatcher_;
    std::optional<HttpServer> http_;
};

TEST_F(SlowEnds, HoldUpNobodyAndSendTheirRepeatsAway) {
    std::list<Client> clients;
    for (size_t i = 1; i <= backups; ++i) {
        clients.emplace_back(port()).send(endRequest("i" + std::to_string(i)));
    }
    for (const int64_t number : blocks_->waitFor(endingThreads)) {
        const std::string name = "i" + std::to_string(number);
        for (int repeat = 0; repeat < 3; ++repeat) {
            const Answer answer = endJob(name);
            EXPECT_EQ(answer.status, 503);
            EXPECT_EQ(answer.header("Retry-After"), "5");
        }
        EXPECT_EQ(cancel(name), 503);
        EXPECT_EQ(putInfo(name, "other", 1), 503);
    }
    offer("other", {{"a"}});
    run("other", "a", "a");
    blocks_->open();
    for (Client& client : clients) {
        EXPECT_EQ(client.receive().status, 200);
    }
    EXPECT_EQ(column("SELECT count(*) FROM instances WHERE state = 2"), std::to_string(backups));
}

TEST_F(SlowEnds, CompleteNothingThatIsFoundDamagedMeanwhile) {
    Client client(port());
    client.send(endRequest("i1"));
    blocks_->waitFor(1);
    catalog_->damageContainer(1);  // as a sync point does
    blocks_->open();
    EXPECT_EQ(client.receive().status, 409);
    EXPECT_EQ(state("i1"), "running");
}

TEST_F(SlowEnds, AreFinishedAtAStop) {
    Client client(port());
    client.send(endRequest("i1"));
    blocks_->waitFor(1);
    std::thread stop([this] { http_->stop(); });
    // It has begun when nobody is let in any more.
    try {
        while (true) {
            Client(port()).shutdownSend();
        }
    } catch (const std::exception&) {
        blocks_->open();
    }
    EXPECT_EQ(client.receive().status, 200);
    stop.join();
}

class Pieces : public ServiceFixture {
protected:
    // Names of files "1000" to "3499", all awaited.
    static const std::vector<Offer>& files() {
        static const std::vector<Offer> all = [] {
            std::vector<Offer> list;
            for (int i = 1000; i < 3500; ++i) {
                list.push_back({std::to_string(i)});
            }
            return list;
        }();
        return all;
    }

    // A request that reports these of them as failed.
    static std::string errors(const std::string& instance, size_t from, size_t until) {
        json::array list;
        for (size_t i = from; i < until; ++i) {
            list.push_back(json::object{{"path", files()[i].path}, {"code", 5}, {"reason", ""}});
        }
        return json::serialize(
            json::object{{"jobinstanceid", instance}, {"errors", std::move(list)}});
    }

    // While this lives, a file of the third piece cannot be forgotten.
    class Fault {
    public:
        explicit Fault(const std::filesystem::path& data)
            : database_((data / "catalog.db").string()) {
            database_.exec(
                "CREATE TRIGGER fault BEFORE DELETE ON files WHEN old.path = x'33303030'"
                " BEGIN SELECT RAISE(ABORT, 'fault'); END");
        }
        ~Fault() { database_.exec("DROP TRIGGER fault"); }
        Fault(const Fault&) = delete;
        Fault& operator=(const Fault&) = delete;

    private:
        Database database_;
    };

    std::string kept() { return column("SELECT count(*) FROM files"); }
};

TEST_F(Pieces, OfACancelThatDiedAreGoneAfterTheNextStart) {
    offer("i1", files());
    run("i1", "3400", "bytes");
    {
        const Fault fault(data);
        EXPECT_EQ(cancel("i1"), 503);
        EXPECT_EQ(kept(), "500");
        EXPECT_EQ(start("i1"), 409);
    }
    restart();
    EXPECT_EQ(kept(), "0");
    EXPECT_EQ(stored("i1", "3400"), "none");
    EXPECT_EQ(cancel("i1"), 200);
    EXPECT_EQ(state("i1"), "cancelled");
}

TEST_F(Pieces, OfAnEndThatDiedLetItEndAsItWouldHave) {
    offer("i1", files());
    run("i1", "whole", "bytes");
    EXPECT_EQ(post(addErrorsPath, errors("i1", 0, 2500)).status, 200);
    {
        const Fault fault(data);
        EXPECT_EQ(end("i1"), 503);
        EXPECT_EQ(kept(), "501");
        EXPECT_EQ(state("i1"), "running");
    }
    restart();
    EXPECT_EQ(end("i1"), 200);
    EXPECT_EQ(kept(), "1");
    EXPECT_EQ(offer("i2", {{"1000"}, {"3400"}, {"whole"}}), "1000,3400");
}

TEST_F(Pieces, OfANewListThatDiedAreForgottenByItsRepeat) {
    offer("i1", files());
    {
        const Fault fault(data);
        EXPECT_EQ(offer("i1", {{"new"}}, "job", alice, true), "<503>");
        EXPECT_EQ(kept(), "500");
    }
    restart();
    EXPECT_EQ(offer("i1", {{"new"}}, "job", alice, true), "new");
    EXPECT_EQ(kept(), "1");
}

TEST_F(Pieces, AreAllLookedAtByTheEnd) {
    start("i1");
    offer("i1", files());
    post(addErrorsPath, errors("i1", 1, 2499));
    EXPECT_EQ(endJob("i1").json().at("incomplete"), json::array({"1000", "3499"}));
    post(addErrorsPath, errors("i1", 0, 1));
    post(addErrorsPath, errors("i1", 2499, 2500));
    // A package behind those of all other pieces has lost a byte.
    put("i1", "4000", "bytes");
    std::filesystem::resize_file(package(1), 4);
    EXPECT_EQ(end("i1"), 409);
}

TEST(InstanceLocks, SendAwayAtOnceWhoComesToAnEnding) {
    InstanceLocks locks(std::chrono::hours(1));
    using Hold = InstanceLocks::Hold;
    for (const Hold hold : {Hold::brief, Hold::ending}) {
        const InstanceLocks::Guard ending(locks, 1, "i", Hold::ending);
        EXPECT_THROW(InstanceLocks::Guard(locks, 1, "i", hold), ServiceError);
        const InstanceLocks::Guard other(locks, 1, "j", hold);
        const InstanceLocks::Guard stranger(locks, 2, "i", hold);
    }
    const InstanceLocks::Guard free(locks, 1, "i");
}

TEST(InstanceLocks, LetOnlyAFewWaitForOneBackup) {
    constexpr size_t most = InstanceLocks::mostWaiting;
    InstanceLocks locks(std::chrono::seconds(30));
    // Twice: who has waited leaves the place to another.
    for (int round = 0; round < 2; ++round) {
        std::promise<std::string> refusal;
        std::atomic<size_t> refused = 0;
        std::atomic<size_t> served = 0;
        std::vector<std::jthread> clients;
        {
            const InstanceLocks::Guard busy(locks, 1, "i");
            for (size_t i = 0; i <= most; ++i) {
                clients.emplace_back([&] {
                    try {
                        const InstanceLocks::Guard guard(locks, 1, "i");
                        ++served;
                    } catch (const ServiceError& error) {
                        if (refused++ == 0) {
                            refusal.set_value(error.what());
                        }
                    }
                });
            }
            EXPECT_EQ(refusal.get_future().get(),
                      "too many requests of this backup are in progress");
            const InstanceLocks::Guard other(locks, 1, "j");
        }
        clients.clear();
        EXPECT_EQ(refused, 1U);
        EXPECT_EQ(served, most);
    }
}

}  // namespace

}  // namespace dorvo
