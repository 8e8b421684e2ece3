#include "runevents.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(RunEvents, ReadsTheReasonOfTheJobsOwnErrorsOnly) {
    const auto reason = [](const char* text) { return RunEvents::reasonOf(text, "job"); };
    EXPECT_EQ(reason(R"({"error-code":503,"id":"JOB","name":"n","reason":"Service Unavailable",)"
                     R"("state":"running"})"),
              "Service Unavailable, error 503");
    EXPECT_EQ(reason(R"({"error-code":10054,"id":"job","reason":"Reset. "})"),
              "Reset, error 10054");
    EXPECT_EQ(reason(R"({"error-code":67108866,"id":"job","reason":"import it"})"), "import it");
    EXPECT_NE(reason(R"({"error-code":10054,"id":"job","reason":""})").find("error 10054"),
              std::string::npos);
    for (const char* text :
         {R"({"error-code":5,"id":"other","reason":"x"})", R"({"id":"job","state":"paused"})", "",
          "[]", R"({"error-code":"5","id":"job","reason":"x"})", R"({"error-code":5})", "{"}) {
        EXPECT_EQ(reason(text), "") << text;
    }
}

}  // namespace
}  // namespace dorvo::agent
