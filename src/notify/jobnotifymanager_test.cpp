#include "notify/jobnotifymanager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "notify/notify_event.h"
#include "scheduler/iocp_dispatcher.h"
#include "support/log_capture.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using Manager = ATL::CComSingleton<JobNotifyManagerImpl, ATL::CComAutoCriticalSection>;

class Observer : public JobNotifyObserver {
public:
    explicit Observer(const char* user) : JobNotifyObserver(user) {
        EXPECT_TRUE(Manager::instance()->registerObserver(this));
    }
    ~Observer() override { Manager::instance()->unregisterObserver(this); }

    bool deliver(const std::string& text) override {
        texts.push_back(text);
        return false;
    }

    std::vector<std::string> texts;
};

std::atomic<int> alive{0};
class CountedEvent : public Notify_Event {
public:
    explicit CountedEvent(const char* user) : Notify_Event("{}", user) { ++alive; }
    ~CountedEvent() override { --alive; }
};

class Notifications : public testing::Test {
protected:
    Notifications() {
        EXPECT_TRUE(IocpDispatherWrapper::open());
        EXPECT_TRUE(IocpDispatherWrapper::activate());
    }
    ~Notifications() override { EXPECT_TRUE(IocpDispatherWrapper::close()); }

    static bool post(Notify_Event* event) { return Manager::instance()->post(event); }
    // Everything posted before has been delivered when this returns.
    static void finish() { EXPECT_TRUE(IocpDispatherWrapper::close()); }
};

TEST_F(Notifications, ReachObserversOfTheSameUserInOrder) {
    Observer everybody(nullptr);
    EXPECT_FALSE(Manager::instance()->registerObserver(&everybody)) << "once";
    Observer a("a");
    Observer upper("A");
    Observer b("b");
    EXPECT_TRUE(post(new Notify_Event("1", "a")));
    EXPECT_TRUE(post(new Notify_Event("2", "b")));
    EXPECT_TRUE(post(new Notify_Event("3", nullptr)));
    EXPECT_TRUE(post(new Event_End));
    finish();
    EXPECT_EQ(everybody.texts, (std::vector<std::string>{"1", "2", "3", ""}));
    EXPECT_EQ(a.texts, (std::vector<std::string>{"1", "3", ""}));
    EXPECT_EQ(upper.texts, (std::vector<std::string>{"3", ""}));
    EXPECT_EQ(b.texts, (std::vector<std::string>{"2", "3", ""}));
}

TEST_F(Notifications, AnObserverThatThrowsCostsTheOthersNothing) {
    class Thrower : public Observer {
    public:
        using Observer::Observer;
        bool deliver(const std::string&) override { throw std::runtime_error("full"); }
    };
    test::LogCapture log;
    Thrower first("a");
    Observer second("a");
    Thrower third("a");
    EXPECT_TRUE(post(new CountedEvent("a")));
    finish();
    EXPECT_EQ(second.texts.size(), 1U);
    EXPECT_TRUE(log.has("Failed to deliver event to observer of user {a}, full.\n"));
    EXPECT_EQ(alive, 0);
}

TEST_F(Notifications, AreFreedWhateverBecomesOfThem) {
    Observer observer("somebody");
    EXPECT_TRUE(postEvent(std::make_unique<CountedEvent>("nobody")));
    EXPECT_TRUE(postEvent(std::make_unique<CountedEvent>("somebody")));
    finish();
    EXPECT_EQ(observer.texts.size(), 1U);
    EXPECT_FALSE(postEvent(std::make_unique<CountedEvent>("somebody"))) << "the port is closed";
    EXPECT_EQ(alive, 0);
    auto* kept = new CountedEvent("somebody");
    EXPECT_FALSE(post(kept));
    EXPECT_EQ(alive, 1) << "a refused event stays the caller's";
    delete kept;
}

TEST(NotifyEvents, AreCompactJson) {
    struct Row {
        const char* name;
        Notify_Event event;
        const char* text;
        const char* user;
    };
    const Row rows[] = {
        {"string is text, not JSON", Notify_Event(std::string("x"), "u"), "x", "u"},
        {"state", Event_State("u", "id1", L"Gr\u00fc\u00dfe", 5),
         "{\"id\":\"id1\",\"name\":\"Gr\xC3\xBC\xC3\x9F"
         "e\",\"state\":\"pausing\"}",
         "u"},
        {"unknown state", Event_State(nullptr, nullptr, nullptr, 42),
         R"({"id":"","name":"","state":"none"})", ""},
        {"error", Event_Job_Error("u", "id1", L"n", 10, 503, "a \"reason\""),
         R"({"error-code":503,"id":"id1","name":"n","reason":"a \"reason\"","state":"error"})",
         "u"},
        {"end", Event_End(), "", ""},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.event.event(), row.text) << row.name;
        EXPECT_EQ(row.event.get_user(), row.user) << row.name;
    }
}

}  // namespace
}  // namespace dorvo
