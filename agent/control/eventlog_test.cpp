#include "control/eventlog.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

// What came, as "after>text,text".
struct Taken {
    EventLog::Take take() {
        return [this](const EventLog::Page& page) {
            text += std::to_string(page.next) + ">";
            for (const std::string& event : page.texts) {
                text += event + ",";
            }
        };
    }
    std::string text;
};

TEST(EventLog, KeepsTheLastAndWakesThoseWhoWait) {
    EventLog log(3);
    Taken now;
    Taken ahead;
    Taken cancelled;
    EXPECT_NE(log.waitForEvents(0, now.take()), 0U);
    log.waitForEvents(99, ahead.take());  // a number of a log before this one
    log.cancel(log.waitForEvents(0, cancelled.take()));
    for (const char* text : {"a", "b", "c", "d"}) {
        log.deliver(text);
    }
    EXPECT_EQ(now.text, "1>a,");
    EXPECT_EQ(ahead.text, "1>a,");
    EXPECT_EQ(cancelled.text, "");
    Taken behind;
    EXPECT_EQ(log.waitForEvents(0, behind.take()), 0U);
    log.waitForEvents(3, behind.take());
    EXPECT_EQ(behind.text, "4>b,c,d,4>d,");
}

TEST(EventLog, GivesStatesOneByOne) {
    EventLog log;
    const std::string running = R"({"id":"J","state":"running"})";
    for (const std::string& text :
         {std::string("no JSON"), std::string("[]"), std::string(R"({"id":"J","percent":1})"),
          std::string(R"({"id":1,"state":"idle"})"), running,
          std::string(R"({"error-code":5,"id":"J","state":"error"})")}) {
        log.deliver(text);
    }
    Taken states;
    log.waitForState(0, states.take());
    log.waitForState(5, states.take());
    EXPECT_EQ(states.text, "5>" + running + R"(,6>{"id":"J","state":"error"},)");
    EXPECT_NE(log.waitForState(6, states.take()), 0U);
}

}  // namespace
}  // namespace dorvo::agent
