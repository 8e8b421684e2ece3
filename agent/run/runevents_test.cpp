#include "run/runevents.h"

#include <gtest/gtest.h>

#include "engine/fakeengine.h"
#include "jobdef/backupjobdefinition.h"

namespace dorvo::agent {
namespace {

TEST(RunEvents, TellWhyAJobWaitsAndWhatToDo) {
    FakeEngine engine;
    RunEvents events(&engine);
    const BackupJobDefinition job("job", L"n", "alice");
    const auto reason = [&](const std::string& text) {
        engine.say(text);
        return events.takeReason(job);
    };
    const auto error = [](const char* code, const char* reason) {
        return std::string(R"({"error-code":)") + code + R"(,"id":"job","name":"n","reason":")" +
               reason + R"(","state":"running"})";
    };
    // An HTTP status comes without its mark; its name tells it from a system's error.
    EXPECT_NE(reason(error("401", "Unauthorized")).find("agent login alice"), std::string::npos);
    EXPECT_NE(reason(error("503", "Service Unavailable")).find("HTTP status 503"),
              std::string::npos);
    EXPECT_EQ(reason(error("503", "The directory")).find("HTTP"), std::string::npos);
    EXPECT_NE(reason(error("10061", "Refused. ")).find("agent server set"), std::string::npos);
    EXPECT_NE(reason(error("10054", "")).find("error 10054"), std::string::npos);
    EXPECT_NE(reason(error("67108866", "x")).find("agent key import"), std::string::npos);
    for (const char* text : {R"({"error-code":5,"id":"other","reason":"x","state":"running"})",
                             R"({"id":"job","name":"n","state":"paused"})", "[]",
                             R"({"error-code":"5","id":"job","reason":"x","state":"running"})",
                             R"({"error-code":5})", "{"}) {
        EXPECT_EQ(reason(text), "") << text;
    }
    EXPECT_FALSE(events.removed("job"));
    engine.say(R"({"id":"job","name":"n","state":"deleted"})");
    EXPECT_TRUE(events.removed("job"));
    EXPECT_FALSE(events.ended());
    engine.say("");
    EXPECT_TRUE(events.ended());
}

}  // namespace
}  // namespace dorvo::agent
