#include "control/eventlog.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

// Puts what came aside, as "after>text,text,".
EventLog::Take into(std::string& taken) {
    return [&taken](const EventLog::Page& page) {
        taken += std::to_string(page.next) + ">";
        for (const std::string& event : page.texts) {
            taken += event + ",";
        }
    };
}

TEST(EventLog, KeepsTheLastAndWakesThoseWhoWait) {
    EventLog log(3);
    std::string now, ahead, cancelled, behind;
    EXPECT_NE(log.waitForEvents(0, into(now)), 0U);
    log.waitForEvents(99, into(ahead));  // a number of a log before this one
    log.cancel(log.waitForEvents(0, into(cancelled)));
    for (const char* text : {"a", "b", "c", "d"}) {
        log.deliver(text);
    }
    EXPECT_EQ(now, "1>a,");
    EXPECT_EQ(ahead, "1>a,");
    EXPECT_EQ(cancelled, "");
    EXPECT_EQ(log.waitForEvents(0, into(behind)), 0U);
    log.waitForEvents(3, into(behind));
    EXPECT_EQ(behind, "4>b,c,d,4>d,");
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
    std::string states;
    log.waitForState(0, into(states));
    log.waitForState(5, into(states));
    EXPECT_EQ(states, "5>" + running + R"(,6>{"id":"J","state":"error"},)");
    EXPECT_NE(log.waitForState(6, into(states)), 0U);
}

}  // namespace
}  // namespace dorvo::agent
